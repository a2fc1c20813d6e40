#include "FileTransfer.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <random>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <utility>

namespace {

// Written back while the rest still arrives, so that the last fsync does not have it all to do.
constexpr std::uint64_t kWriteBackBytes = 8 * 1024 * 1024;
constexpr mode_t kPermissions = S_IRWXU | S_IRWXG | S_IRWXO;

void splitPath(const std::string& path, std::string& parent, std::string& name) {
    const std::string::size_type slash = path.rfind('/');
    parent = path.substr(0, slash + 1);
    name = path.substr(slash + 1);
}

// Why a path cannot name a file to be transferred; empty when it can.
std::string faultOfPath(const std::string& path) {
    if (path.empty() || path.front() != '/') {
        return "is not an absolute path";
    }
    if (path.find('\0') != std::string::npos) {
        return "holds a NUL byte";
    }
    std::string parent;
    std::string name;
    splitPath(path, parent, name);
    if (name.empty() || name == "." || name == "..") {
        return "names a directory, not a file";
    }
    return "";
}

// Why something of this mode is not transferred; empty when it is a regular file.
std::string faultOfType(mode_t mode) {
    if (S_ISREG(mode)) {
        return "";
    }
    if (S_ISDIR(mode)) {
        return "is a directory";
    }
    if (S_ISLNK(mode)) {
        return "is a symbolic link; name the file itself";
    }
    return "is not a regular file";
}

std::string randomName() {
    static const char letters[] = "abcdefghijklmnopqrstuvwxyz0123456789";
    std::random_device source;
    std::uniform_int_distribution<std::size_t> pick(0, sizeof letters - 2);
    std::string text = ".kelnode-";
    for (int i = 0; i < 16; ++i) {
        text += letters[pick(source)];
    }
    return text;
}

int syncDescriptor(int fd) {
    int result = 0;
    do {
        result = ::fsync(fd);
    } while (result != 0 && errno == EINTR);
    return result;
}

std::string progress(std::uint64_t done, std::uint64_t all) {
    return std::to_string(done) + " of " + std::to_string(all) + " bytes";
}

}  // namespace

FileReceiver::FileReceiver(std::string target, std::uint64_t fileSize, std::uint32_t fileMode,
                           const RunDirectory& runDirectory)
    : path(std::move(target)), size(fileSize), mode(fileMode), directory(runDirectory) {
    const std::string fault = faultOfPath(path);
    if (!fault.empty()) {
        throw CException("\"" + path + "\" " + fault);
    }
    std::string parentPath;
    splitPath(path, parentPath, name);
    parent.reset(::open(parentPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!parent) {
        throw CException("cannot save \"" + path + "\": the directory " + parentPath + ": " +
                         std::strerror(errno));
    }
    checkTarget();
    checkSpace();
    makeTemporary();
}

FileReceiver::~FileReceiver() {
    if (!temporary.empty()) {
        ::unlinkat(parent.get(), temporary.c_str(), 0);
    }
    record.finish();
}

void FileReceiver::fail(const std::string& what) const {
    throw CException("cannot save \"" + path + "\": " + what);
}

void FileReceiver::checkTarget() const {
    struct stat found {};
    if (::fstatat(parent.get(), name.c_str(), &found, AT_SYMLINK_NOFOLLOW) != 0) {
        if (errno != ENOENT) {
            fail(std::strerror(errno));
        }
        return;
    }
    const std::string fault = faultOfType(found.st_mode);
    if (!fault.empty()) {
        throw CException("\"" + path + "\" " + fault);
    }
}

void FileReceiver::checkSpace() const {
    struct statvfs space {};
    if (::fstatvfs(parent.get(), &space) != 0 || space.f_blocks == 0) {
        return;  // a file system that does not count
    }
    if (size > static_cast<std::uint64_t>(space.f_bavail) * space.f_frsize) {
        fail(std::strerror(ENOSPC) + std::string(", ") + std::to_string(size) +
             " bytes are needed");
    }
}

void FileReceiver::makeTemporary() {
    // No name means that nothing can stay behind, however this process or the machine ends.
    file.reset(::openat(parent.get(), ".", O_TMPFILE | O_RDWR | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (file) {
        return;
    }
    if (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL && errno != ENOENT) {
        fail(std::strerror(errno));
    }
    nameTemporary();
    file.reset(::openat(parent.get(), temporary.c_str(),
                        O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR));
    if (!file) {
        const std::string reason = std::strerror(errno);
        temporary.clear();
        fail(reason);
    }
}

void FileReceiver::nameTemporary() {
    std::string parentPath;
    std::string last;
    splitPath(path, parentPath, last);
    const std::string chosen = randomName();
    record = directory.openRecord(RunDirectory::Kind::kOrdinary);
    record.addFile(parentPath + chosen);
    temporary = chosen;
}

void FileReceiver::write(const std::string& bytes) {
    if (bytes.size() > size - written) {
        throw Damaged("cannot save \"" + path + "\": more bytes arrived than were announced");
    }
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t count = ::write(file.get(), bytes.data() + done, bytes.size() - done);
        if (count < 0) {
            if (errno == EINTR) {
                continue;
            }
            const std::string reason = std::strerror(errno);
            fail(reason + " after " + progress(written + done, size));
        }
        done += static_cast<std::size_t>(count);
    }
    digest.update(bytes.data(), bytes.size());
    written += bytes.size();
    writeBack();
}

void FileReceiver::writeBack() {
    if (written - writtenBack >= kWriteBackBytes) {
        // Only a hint; fsync at the end is what counts and what reports errors.
        ::sync_file_range(file.get(), static_cast<off64_t>(writtenBack),
                          static_cast<off64_t>(written - writtenBack), SYNC_FILE_RANGE_WRITE);
        writtenBack = written;
    }
}

std::string FileReceiver::finish(const std::string& expectedDigest) {
    if (written != size) {
        throw Damaged("cannot save \"" + path + "\": only " + progress(written, size) + " arrived");
    }
    const std::string found = digest.finish();
    if (found != expectedDigest) {
        throw Damaged("cannot save \"" + path + "\": it was damaged on its way (SHA-256 " +
                      FileDigest::shortHex(found) + " instead of " +
                      FileDigest::shortHex(expectedDigest) + ")");
    }
    if (::fchmod(file.get(), mode & kPermissions) != 0 || syncDescriptor(file.get()) != 0) {
        fail(std::strerror(errno));
    }
    if (temporary.empty()) {
        nameTemporary();
        const std::string self = "/proc/self/fd/" + std::to_string(file.get());
        if (::linkat(AT_FDCWD, self.c_str(), parent.get(), temporary.c_str(), AT_SYMLINK_FOLLOW) !=
            0) {
            fail(std::strerror(errno));
        }
    }
    // Again at the last moment: what was put there meanwhile is not replaced silently.
    checkTarget();
    if (::renameat(parent.get(), temporary.c_str(), parent.get(), name.c_str()) != 0) {
        fail(std::strerror(errno));
    }
    temporary.clear();
    record.finish();
    if (syncDescriptor(parent.get()) != 0) {
        fail(std::string("it is in its place, but perhaps not yet on the disk: ") +
             std::strerror(errno));
    }
    return "\"" + path + "\" saved, " + std::to_string(size) + " bytes, SHA-256 " +
           FileDigest::shortHex(found) + ".";
}

FileSender::FileSender(std::string source) : path(std::move(source)) {
    const std::string fault = faultOfPath(path);
    if (!fault.empty()) {
        throw CException("\"" + path + "\" " + fault);
    }
    // Not blocking, because the name may be that of a FIFO.
    file.reset(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
    if (!file) {
        if (errno == ELOOP) {
            throw CException("\"" + path + "\" " + faultOfType(S_IFLNK));
        }
        fail(std::strerror(errno));
    }
    struct stat opened {};
    if (::fstat(file.get(), &opened) != 0) {
        fail(std::strerror(errno));
    }
    const std::string typeFault = faultOfType(opened.st_mode);
    if (!typeFault.empty()) {
        throw CException("\"" + path + "\" " + typeFault);
    }
    fileSize = static_cast<std::uint64_t>(opened.st_size);
    fileMode = opened.st_mode & kPermissions;
    modifiedSeconds = opened.st_mtim.tv_sec;
    modifiedNanos = opened.st_mtim.tv_nsec;
    ::posix_fadvise(file.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
}

void FileSender::fail(const std::string& what) const {
    throw CException("cannot read \"" + path + "\": " + what);
}

std::string FileSender::read(std::size_t maxBytes) {
    const std::size_t wanted =
        static_cast<std::size_t>(std::min<std::uint64_t>(maxBytes, fileSize - done));
    std::string bytes(wanted, '\0');
    std::size_t have = 0;
    while (have < wanted) {
        const ssize_t count = ::read(file.get(), bytes.data() + have, wanted - have);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            fail(std::strerror(errno));
        }
        if (count == 0) {
            fail("it became shorter while it was read, " + progress(done + have, fileSize));
        }
        have += static_cast<std::size_t>(count);
    }
    digest.update(bytes.data(), bytes.size());
    done += have;
    return bytes;
}

std::string FileSender::finish() {
    // The files of /proc tell no size and yet hold something.
    char more = 0;
    if (::read(file.get(), &more, 1) > 0) {
        fail("it became longer while it was read, or has no size of its own");
    }
    struct stat now {};
    if (::fstat(file.get(), &now) != 0) {
        fail(std::strerror(errno));
    }
    if (static_cast<std::uint64_t>(now.st_size) != fileSize) {
        fail("its size changed while it was read, from " + std::to_string(fileSize) + " to " +
             std::to_string(now.st_size) + " bytes");
    }
    if (now.st_mtim.tv_sec != modifiedSeconds || now.st_mtim.tv_nsec != modifiedNanos) {
        fail("it was changed while it was read");
    }
    return digest.finish();
}
