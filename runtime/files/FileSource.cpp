#include "FileSource.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

#include "Posix.h"
#include "Protocol.h"

namespace {

std::string quoted(const std::string& path) {
    return "\"" + path + "\"";
}

// Reads the whole length, unless the file ends before.
std::size_t readFully(int fd, char* target, std::size_t length, const std::string& path) {
    const ssize_t got = Posix::readAll(fd, target, length);
    if (got < 0) {
        const int error = errno;
        throw FileError("Cannot read " + quoted(path) + ": " + std::strerror(error) + ".");
    }
    return static_cast<std::size_t>(got);
}

bool sameTime(const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

}  // namespace

FileSource::FileSource(const std::string& sourcePath, SharedDigests* shared) : path(sourcePath) {
    if (path.empty() || path.front() != '/') {
        throw FileError(quoted(path) + " is not an absolute path.");
    }
    // O_NONBLOCK: opening a FIFO must not wait for a writer; it is refused below.
    file = Posix::open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY);
    if (!file) {
        const int error = errno;
        throw FileError("Cannot open " + quoted(path) + ": " + std::strerror(error) + ".");
    }
    examine(shared);
}

FileSource::FileSource(const std::string& sourcePath, UniqueFd openedFile)
    : path(sourcePath), file(std::move(openedFile)) {
    examine(nullptr);
}

void FileSource::examine(SharedDigests* shared) {
    if (fstat(file.get(), &opened) != 0) {
        const int error = errno;
        throw FileError("Cannot examine " + quoted(path) + ": " + std::strerror(error) + ".");
    }
    if (S_ISDIR(opened.st_mode)) {
        throw FileError(quoted(path) + " is a directory.");
    }
    if (!S_ISREG(opened.st_mode)) {
        throw FileError(quoted(path) + " is not a regular file.");
    }
    total = static_cast<std::uint64_t>(opened.st_size);
    permissions = opened.st_mode & 0777;
    digest = shared != nullptr ? shared->of(opened) : std::make_shared<SharedDigest>();
    // A hint; a failure changes nothing.
    (void)posix_fadvise(file.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
}

FileSource::~FileSource() {
    ahead.abandon();
}

bool FileSource::nextFrame(std::string& frame) {
    startReadingAhead();
    if (!(reader.isRunning() ? takeFrame(frame) : readFrame(frame))) {
        return false;
    }
    given += frame.size() - protocol::kHeaderBytes;
    return true;
}

void FileSource::startReadingAhead() {
    if (!started && total >= SideThread::kWorthwhileBytes) {
        (void)reader.start([this] { readAhead(); });
    }
    started = true;
}

void FileSource::readAhead() noexcept {
    try {
        std::string frame;
        while (readFrame(frame) && ahead.put(frame)) {
        }
    } catch (...) {
        fault = std::current_exception();
    }
    ahead.end();
}

bool FileSource::takeFrame(std::string& frame) {
    if (ahead.take(frame)) {
        return true;
    }
    reader.join();
    if (fault) {
        std::rethrow_exception(fault);
    }
    return false;
}

bool FileSource::readFrame(std::string& frame) {
    if (done == total) {
        checkUnchanged();
        return false;
    }
    const std::size_t length =
        static_cast<std::size_t>(std::min<std::uint64_t>(total - done, protocol::kDataChunkBytes));
    frame.resize(protocol::kHeaderBytes + length);
    if (readFully(file.get(), &frame[protocol::kHeaderBytes], length, path) != length) {
        changed("became shorter");
    }
    protocol::FrameHeader header;
    header.length = static_cast<std::uint32_t>(length);
    header.type = protocol::FrameType::kData;
    frame.replace(0, protocol::kHeaderBytes, protocol::encodeHeader(header));
    digest->add(done, frame.data() + protocol::kHeaderBytes, length);
    done += length;
    return true;
}

void FileSource::changed(const char* how) const {
    throw FileError(quoted(path) + " " + how + " while it was being read; nothing was copied.");
}

void FileSource::checkUnchanged() {
    char beyond = 0;
    if (readFully(file.get(), &beyond, 1, path) != 0) {
        changed("became longer");
    }
    struct stat now {};
    if (fstat(file.get(), &now) != 0 || now.st_size != opened.st_size ||
        !sameTime(now.st_mtim, opened.st_mtim)) {
        changed("was written to");
    }
}
