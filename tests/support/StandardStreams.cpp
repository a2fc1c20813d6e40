#include "StandardStreams.h"

#include <stdexcept>
#include <sys/mman.h>

RedirectedFd::RedirectedFd(int standard, int replacement)
    : target(standard), saved(fcntl(standard, F_DUPFD_CLOEXEC, 10)) {
    std::cout.flush();
    std::fflush(stdout);
    if (!saved || dup2(replacement, target) < 0) {
        throw std::runtime_error("cannot redirect a standard descriptor");
    }
}

RedirectedFd::~RedirectedFd() {
    std::cout.flush();
    std::fflush(stdout);
    dup2(saved.get(), target);
}

MemoryFile::MemoryFile(const std::string& content) : fd(memfd_create("kelsh-test", MFD_CLOEXEC)) {
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

std::string MemoryFile::content() const {
    std::string text;
    char buffer[65536];
    for (;;) {
        const ssize_t got = pread(fd.get(), buffer, sizeof buffer, static_cast<off_t>(text.size()));
        if (got <= 0) {
            return text;
        }
        text.append(buffer, static_cast<std::size_t>(got));
    }
}

TypedInput::TypedInput(const std::string& keys)
    : file(keys), redirection(STDIN_FILENO, file.get()) {}

std::string CapturedOutput::text() {
    std::cout.flush();
    std::fflush(stdout);
    return file.content();
}

std::string writtenBy(const std::function<void()>& action) {
    CapturedOutput output;
    action();
    return output.text();
}
