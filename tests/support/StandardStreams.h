#pragma once

#include <cstdio>
#include <fcntl.h>
#include <functional>
#include <iostream>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

#include "UniqueFd.h"

// Puts another descriptor in the place of a standard one for the life of the object.
class RedirectedFd {
public:
    RedirectedFd(int standard, int replacement)
        : target(standard), saved(fcntl(standard, F_DUPFD_CLOEXEC, 10)) {
        std::cout.flush();
        std::fflush(stdout);
        if (!saved || dup2(replacement, target) < 0) {
            throw std::runtime_error("cannot redirect a standard descriptor");
        }
    }
    RedirectedFd(const RedirectedFd&) = delete;
    RedirectedFd& operator=(const RedirectedFd&) = delete;
    ~RedirectedFd() {
        std::cout.flush();
        std::fflush(stdout);
        dup2(saved.get(), target);
    }

private:
    int target;
    UniqueFd saved;
};

// A file in memory.
class MemoryFile {
public:
    explicit MemoryFile(const std::string& content = "")
        : fd(memfd_create("kelsh-test", MFD_CLOEXEC)) {
        std::size_t done = 0;
        while (done < content.size()) {
            const ssize_t written = write(fd.get(), content.data() + done, content.size() - done);
            if (written < 0) {
                throw std::runtime_error("cannot fill a memory file");
            }
            done += static_cast<std::size_t>(written);
        }
        lseek(fd.get(), 0, SEEK_SET);
    }

    int get() const { return fd.get(); }

    std::string content() const {
        std::string text;
        char buffer[65536];
        for (;;) {
            const ssize_t got =
                pread(fd.get(), buffer, sizeof buffer, static_cast<off_t>(text.size()));
            if (got <= 0) {
                return text;
            }
            text.append(buffer, static_cast<std::size_t>(got));
        }
    }

private:
    UniqueFd fd;
};

// Standard input holds the given bytes and then ends.
class TypedInput {
public:
    explicit TypedInput(const std::string& keys)
        : file(keys), redirection(STDIN_FILENO, file.get()) {}

private:
    MemoryFile file;
    RedirectedFd redirection;
};

// Collects standard output.
class CapturedOutput {
public:
    CapturedOutput() : redirection(STDOUT_FILENO, file.get()) {}

    // Everything written so far.
    std::string text() {
        std::cout.flush();
        std::fflush(stdout);
        return file.content();
    }

private:
    MemoryFile file;
    RedirectedFd redirection;
};

// What an action writes to standard output.
inline std::string writtenBy(const std::function<void()>& action) {
    CapturedOutput output;
    action();
    return output.text();
}
