#include "FileReplacement.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <utility>

#include <dirent.h>

#include "Posix.h"
#include "Text.h"

namespace {

constexpr int kNameAttempts = 16;
constexpr std::uint64_t kWriteBehindBytes = std::uint64_t{8} * 1024 * 1024;
constexpr char kTemporaryPrefix[] = ".kelsh-part-";
constexpr std::size_t kRandomBytes = 8;
// Locks of shared file systems may not reach other machines. There a file is abandoned when nobody
// has written to it for so long.
constexpr time_t kSharedAbandonedSeconds = 600;

// Short, so that it fits beside a target whose own name has the full 255 bytes.
std::string freshTemporaryName() {
    unsigned char random[kRandomBytes] = {};
    if (getrandom(random, sizeof random, 0) != static_cast<ssize_t>(sizeof random)) {
        throw FileError("Cannot get random bytes for a temporary file.");
    }
    return kTemporaryPrefix +
           FileDigest::toHex(std::string(reinterpret_cast<char*>(random), sizeof random));
}

bool isTemporaryName(const std::string& name) {
    constexpr std::size_t prefixBytes = sizeof kTemporaryPrefix - 1;
    return name.size() == prefixBytes + 2 * kRandomBytes &&
           Text::startsWith(name, kTemporaryPrefix);
}

// A lock held while a temporary file is made. Whoever gets it knows that the maker is gone.
bool tryLock(int fd) {
    return Posix::retried([&] { return flock(fd, LOCK_EX | LOCK_NB); }) == 0;
}

struct DirectoryCloser {
    void operator()(DIR* directory) const { closedir(directory); }
};

// Removes one temporary file when its maker was killed and nobody has written to it since the time
// given. A failure is ignored: it leaves one file too many, and the transfer need not fail for
// that.
void removeAbandoned(int directory, const std::string& name, time_t untouchedSince) {
    const UniqueFd found(
        openat(directory, name.c_str(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat info {};
    if (found && fstat(found.get(), &info) == 0 && S_ISREG(info.st_mode) &&
        info.st_uid == geteuid() && info.st_mtime <= untouchedSince && tryLock(found.get())) {
        (void)unlinkat(directory, name.c_str(), 0);
    }
}

bool isAllZero(const std::string& bytes) {
    // True when the first byte is zero and each byte equals the next. This is as fast as memory,
    // optimised or not.
    return bytes.empty() || (bytes.front() == '\0' &&
                             std::memcmp(bytes.data(), bytes.data() + 1, bytes.size() - 1) == 0);
}

// Gives a name to a file without one. AT_EMPTY_PATH needs a privilege; the way over /proc needs
// /proc.
bool linkUnnamed(int fd, int directory, const std::string& name) {
    if (linkat(fd, "", directory, name.c_str(), AT_EMPTY_PATH) == 0) {
        return true;
    }
    if (errno == EEXIST) {
        return false;
    }
    const std::string self = "/proc/self/fd/" + std::to_string(fd);
    return linkat(AT_FDCWD, self.c_str(), directory, name.c_str(), AT_SYMLINK_FOLLOW) == 0;
}

}  // namespace

FileReplacement::FileReplacement(const std::string& targetPath,
                                 std::function<void(const std::string&)> onName)
    : path(targetPath), announce(std::move(onName)) {
    if (path.empty() || path.front() != '/') {
        throw FileError("\"" + path + "\" is not an absolute path.");
    }
    const std::string::size_type slash = path.find_last_of('/');
    name = path.substr(slash + 1);
    if (name.empty() || name == "." || name == "..") {
        throw FileError("\"" + path + "\" is a directory.");
    }
    const std::string parent = path.substr(0, std::max<std::size_t>(slash, 1));
    // Everything below is relative to this descriptor, so that renaming the directory meanwhile
    // does not lead the content elsewhere.
    directory = Posix::open(parent, O_RDONLY | O_DIRECTORY);
    if (!directory) {
        const int error = errno;
        throw FileError("Cannot open the directory \"" + parent + "\": " + std::strerror(error) +
                        ".");
    }
    refuseUnfitTarget();
}

void FileReplacement::requireRoomFor(std::uint64_t bytes) const {
    struct statvfs found {};
    if (Posix::retried([&] { return ::fstatvfs(directory.get(), &found); }) != 0) {
        // Then writing will tell.
        return;
    }
    const std::uint64_t blocks = bytes / found.f_frsize + (bytes % found.f_frsize != 0 ? 1 : 0);
    if (blocks > found.f_bavail) {
        throw FileError("There is no room for \"" + path + "\": it has " + std::to_string(bytes) +
                        " bytes, and " + std::to_string(found.f_bavail * found.f_frsize) +
                        " are free.");
    }
}

void FileReplacement::sweepAbandoned() const {
    // The time comes from the new file, whose clock has also stamped the others.
    struct stat made {};
    if (fstat(file.get(), &made) != 0) {
        return;
    }
    // Where files without a name exist, locks are those of this machine.
    const time_t untouchedSince =
        temporaryName.empty() ? made.st_ctime : made.st_ctime - kSharedAbandonedSeconds;
    UniqueFd own(openat(directory.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const std::unique_ptr<DIR, DirectoryCloser> listing(own ? fdopendir(own.get()) : nullptr);
    if (!listing) {
        return;
    }
    (void)own.release();
    while (const dirent* entry = readdir(listing.get())) {
        const std::string found = entry->d_name;
        if (isTemporaryName(found)) {
            removeAbandoned(directory.get(), found, untouchedSince);
        }
    }
}

FileReplacement::~FileReplacement() {
    arrived.abandon();
    if (!temporaryName.empty()) {
        // A failure cannot be handled here.
        (void)unlinkat(directory.get(), temporaryName.c_str(), 0);
    }
}

void FileReplacement::refuseUnfitTarget() const {
    struct stat found {};
    if (fstatat(directory.get(), name.c_str(), &found, AT_SYMLINK_NOFOLLOW) != 0) {
        if (errno == ENOENT) {
            return;
        }
        fail("examine", errno);
    }
    if (S_ISDIR(found.st_mode)) {
        throw FileError("\"" + path + "\" is a directory.");
    }
    if (!S_ISREG(found.st_mode) && !S_ISLNK(found.st_mode)) {
        throw FileError("\"" + path + "\" is not a regular file.");
    }
}

std::string FileReplacement::newTemporaryName() const {
    std::string fresh = freshTemporaryName();
    if (announce) {
        announce(path.substr(0, path.find_last_of('/') + 1) + fresh);
    }
    return fresh;
}

void FileReplacement::open(std::uint64_t expectedBytes) {
    openUnnamed();
    if (!file) {
        openNamed();
    }
    sweepAbandoned();
    if (expectedBytes >= SideThread::kWorthwhileBytes) {
        (void)digester.start([this] { digestArrived(); });
    }
}

void FileReplacement::digestArrived() noexcept {
    try {
        std::string piece;
        while (arrived.take(piece)) {
            digest.update(piece.data(), piece.size());
        }
    } catch (...) {
        fault = std::current_exception();
        arrived.abandon();
    }
}

void FileReplacement::openUnnamed() {
    file.reset(Posix::retried(
        [&] { return openat(directory.get(), ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600); }));
    if (file) {
        // Locked before it gets a name: no other process can hold the lock yet.
        (void)tryLock(file.get());
        return;
    }
    // The errors of file systems that have no files without a name.
    if (errno != EOPNOTSUPP && errno != EISDIR && errno != ENOENT && errno != EINVAL) {
        fail("create a file beside", errno);
    }
}

void FileReplacement::openNamed() {
    for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
        const std::string candidate = newTemporaryName();
        file.reset(openat(directory.get(), candidate.c_str(),
                          O_CREAT | O_EXCL | O_NOFOLLOW | O_WRONLY | O_CLOEXEC, 0600));
        if (file) {
            // Another transfer may have taken it for abandoned just before.
            struct stat made {};
            if (tryLock(file.get()) && fstat(file.get(), &made) == 0 && made.st_nlink > 0) {
                temporaryName = candidate;
                return;
            }
            (void)unlinkat(directory.get(), candidate.c_str(), 0);
            continue;
        }
        if (errno != EEXIST && errno != EINTR) {
            break;
        }
    }
    fail("create a file beside", errno);
}

void FileReplacement::write(const std::string& bytes) {
    std::string copy = bytes;
    consume(copy);
}

void FileReplacement::consume(std::string& bytes) {
    store(bytes);
    if (!digester.isRunning()) {
        digest.update(bytes.data(), bytes.size());
    } else {
        // An abandoned pipe means that the digest has failed; finish() reports it.
        (void)arrived.put(bytes);
    }
}

std::string FileReplacement::finish() {
    arrived.end();
    digester.join();
    if (fault) {
        std::rethrow_exception(fault);
    }
    return digest.finish();
}

void FileReplacement::store(const std::string& bytes) {
    if (isAllZero(bytes)) {
        // A hole, so that a sparse image of gigabytes stays small.
        written += bytes.size();
        return;
    }
    if (!Posix::writeAllAt(file.get(), bytes, static_cast<off_t>(written))) {
        fail("write", errno);
    }
    written += bytes.size();
    beginWriting();
}

void FileReplacement::beginWriting() {
    // The disk writes while the rest arrives, instead of everything in fsync().
    if (written - handedToDisk >= kWriteBehindBytes) {
        // Failures are ignored here; fsync() reports them.
        (void)sync_file_range(file.get(), static_cast<off_t>(handedToDisk),
                              static_cast<off_t>(written - handedToDisk), SYNC_FILE_RANGE_WRITE);
        handedToDisk = written;
    }
}

std::string FileReplacement::linkUnderTemporaryName() {
    for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
        std::string candidate = newTemporaryName();
        if (linkUnnamed(file.get(), directory.get(), candidate)) {
            return candidate;
        }
        if (errno != EEXIST) {
            break;
        }
    }
    fail("name the new content of", errno);
}

void FileReplacement::commit(std::uint32_t mode) {
    // A hole at the end does not make the file longer by itself.
    if (ftruncate(file.get(), static_cast<off_t>(written)) != 0) {
        fail("write", errno);
    }
    if (fchmod(file.get(), static_cast<mode_t>(mode & 0777)) != 0) {
        fail("set the mode of", errno);
    }
    if (fsync(file.get()) != 0) {
        fail("write", errno);
    }
    refuseUnfitTarget();
    holdOldFile();
    // A new name is given at once. Only an existing name needs the way over another one.
    const bool placed = temporaryName.empty() && linkUnnamed(file.get(), directory.get(), name);
    if (!placed) {
        if (temporaryName.empty()) {
            temporaryName = linkUnderTemporaryName();
        }
        if (renameat(directory.get(), temporaryName.c_str(), directory.get(), name.c_str()) != 0) {
            fail("replace", errno);
        }
        temporaryName.clear();
    }
    if (fsync(directory.get()) != 0) {
        fail("write the directory of", errno);
    }
}

void FileReplacement::holdOldFile() {
    // O_PATH needs no permission and does nothing to the file, whatever it is.
    oldFile.reset(openat(directory.get(), name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
}

void FileReplacement::fail(const std::string& what, int error) const {
    throw FileError("Cannot " + what + " \"" + path + "\": " + std::strerror(error) + ".");
}
