#pragma once

#include <fcntl.h>
#include <stdexcept>
#include <string>
#include <unistd.h>

#include "UniqueFd.h"

// Puts something else in the place of standard input for as long as it lives.
class StandardInput {
public:
    // A pipe that holds the text and then ends. The text must fit a pipe (64 KiB).
    static StandardInput holding(const std::string& text) {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0) {
            throw std::runtime_error("cannot make a pipe");
        }
        const UniqueFd readEnd(ends[0]);
        const UniqueFd writeEnd(ends[1]);
        if (::write(writeEnd.get(), text.data(), text.size()) !=
            static_cast<ssize_t>(text.size())) {
            throw std::runtime_error("the text does not fit the pipe");
        }
        return StandardInput(readEnd.get());
    }
    static StandardInput file(const std::string& name) {
        const UniqueFd opened(::open(name.c_str(), O_RDONLY | O_CLOEXEC));
        if (!opened) {
            throw std::runtime_error("cannot open " + name);
        }
        return StandardInput(opened.get());
    }

    // The descriptor stays the caller's.
    explicit StandardInput(int descriptor) : saved(::fcntl(0, F_DUPFD_CLOEXEC, 3)) {
        if (::dup2(descriptor, 0) != 0) {
            throw std::runtime_error("cannot replace standard input");
        }
    }
    StandardInput(const StandardInput&) = delete;
    StandardInput& operator=(const StandardInput&) = delete;
    ~StandardInput() {
        if (saved) {
            static_cast<void>(::dup2(saved.get(), 0));
        }
    }

private:
    UniqueFd saved;
};
