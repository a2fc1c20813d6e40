#include "Posix.h"

#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "CException.h"

namespace {

// put(bytes, size, done) writes some bytes behind the first done ones.
template <typename Put>
bool putAll(std::string_view bytes, Put put) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t count =
            Posix::retried([&] { return put(bytes.data() + done, bytes.size() - done, done); });
        if (count == 0) {
            errno = EIO;
        }
        if (count <= 0) {
            return false;
        }
        done += static_cast<std::size_t>(count);
    }
    return true;
}

// take(bytes, size, done) reads some bytes behind the first done ones.
template <typename Take>
ssize_t takeAll(void* bytes, std::size_t size, Take take) {
    std::size_t done = 0;
    while (done < size) {
        const ssize_t count = Posix::retried(
            [&] { return take(static_cast<char*>(bytes) + done, size - done, done); });
        if (count < 0) {
            return -1;
        }
        if (count == 0) {
            break;
        }
        done += static_cast<std::size_t>(count);
    }
    return static_cast<ssize_t>(done);
}

}  // namespace

void Posix::throwErrno(const std::string& what) {
    const int error = errno;
    throw CException(what + ": " + std::strerror(error));
}

UniqueFd Posix::open(const std::string& name, int flags, mode_t mode) {
    return UniqueFd(retried([&] { return ::open(name.c_str(), flags | O_CLOEXEC, mode); }));
}

bool Posix::writeAll(int fd, std::string_view bytes) {
    return putAll(bytes, [&](const char* from, std::size_t size, std::size_t) {
        return ::write(fd, from, size);
    });
}

bool Posix::writeAllAt(int fd, std::string_view bytes, off_t offset) {
    return putAll(bytes, [&](const char* from, std::size_t size, std::size_t done) {
        return ::pwrite(fd, from, size, offset + static_cast<off_t>(done));
    });
}

ssize_t Posix::readAll(int fd, void* bytes, std::size_t size) {
    return takeAll(bytes, size,
                   [&](char* to, std::size_t most, std::size_t) { return ::read(fd, to, most); });
}

ssize_t Posix::readAllAt(int fd, void* bytes, std::size_t size, off_t offset) {
    return takeAll(bytes, size, [&](char* to, std::size_t most, std::size_t done) {
        return ::pread(fd, to, most, offset + static_cast<off_t>(done));
    });
}

Posix::File Posix::openFile(const std::string& name, const char* mode) {
    File file;
    do {
        file.reset(std::fopen(name.c_str(), mode));
    } while (!file && errno == EINTR);
    return file;
}
