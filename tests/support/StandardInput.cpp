#include "StandardInput.h"

#include <fcntl.h>
#include <stdexcept>

StandardInput StandardInput::holding(const std::string& text) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        throw std::runtime_error("cannot make a pipe");
    }
    const UniqueFd readEnd(ends[0]);
    const UniqueFd writeEnd(ends[1]);
    if (::write(writeEnd.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        throw std::runtime_error("the text does not fit the pipe");
    }
    return StandardInput(readEnd.get());
}

StandardInput StandardInput::file(const std::string& name) {
    const UniqueFd opened(::open(name.c_str(), O_RDONLY | O_CLOEXEC));
    if (!opened) {
        throw std::runtime_error("cannot open " + name);
    }
    return StandardInput(opened.get());
}

StandardInput::StandardInput(int descriptor) : saved(::fcntl(0, F_DUPFD_CLOEXEC, 3)) {
    if (::dup2(descriptor, 0) != 0) {
        throw std::runtime_error("cannot replace standard input");
    }
}

StandardInput::~StandardInput() {
    if (saved) {
        static_cast<void>(::dup2(saved.get(), 0));
    }
}
