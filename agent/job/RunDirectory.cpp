#include "RunDirectory.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include <dirent.h>

#include "CException.h"
#include "Posix.h"
#include "ProcessTree.h"
#include "Text.h"

namespace {

constexpr char kRecordPrefix[] = "job-";
// A record gets its final name only when it is locked, so that nobody sweeps it while it is made.
constexpr char kNewPrefix[] = "new-";
// Of the lock of those who take another lock over.
constexpr char kGuardSuffix[] = ".guard";
constexpr time_t kNewRecordSeconds = 60;
constexpr std::size_t kMaxRecordBytes = std::size_t{1024} * 1024;
constexpr int kKillRounds = 20;

struct DirectoryCloser {
    void operator()(DIR* directory) const { ::closedir(directory); }
};

bool lockNow(int fd) {
    return Posix::retried([&] { return ::flock(fd, LOCK_EX | LOCK_NB); }) == 0;
}

std::string readRecord(int fd) {
    struct stat found {};
    if (::fstat(fd, &found) != 0 || found.st_size <= 0) {
        return "";
    }
    std::string text(std::min(kMaxRecordBytes, static_cast<std::size_t>(found.st_size)), '\0');
    const ssize_t count = Posix::readAllAt(fd, text.data(), text.size(), 0);
    text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return text;
}

bool isNamed(int fd, const std::string& path) {
    struct stat opened {};
    struct stat named {};
    return ::fstat(fd, &opened) == 0 && ::lstat(path.c_str(), &named) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

std::string markerFor(const std::string& recordName) {
    return std::string(RunDirectory::kMarkerName) + "=" + recordName;
}

// A field is a letter, the text and a NUL; a last field without its NUL was cut off while it was
// written, so what it announces was not made yet.
RunDirectory::Entry parse(const std::string& content, const std::string& name) {
    RunDirectory::Entry entry;
    std::string::size_type start = 0;
    for (;;) {
        const std::string::size_type end = content.find('\0', start);
        if (end == std::string::npos) {
            return entry;
        }
        const std::string field = content.substr(start, end - start);
        start = end + 1;
        const std::string text = field.empty() ? "" : field.substr(1);
        switch (field.empty() ? ' ' : field.front()) {
            case 'o':
                entry.marker = markerFor(name);
                break;
            case 'u':
                entry.kind = RunDirectory::Kind::kUninterruptible;
                break;
            case 'f':
                entry.files.push_back(text);
                break;
            case 't': {
                const std::string::size_type slash = text.find('/');
                if (slash != std::string::npos) {
                    entry.tools.emplace_back(text.substr(0, slash), text.substr(slash));
                }
                break;
            }
            default:
                break;
        }
    }
}

}  // namespace

void RunLock::note(const std::string& text) const {
    if (::ftruncate(file.get(), 0) == 0 && ::lseek(file.get(), 0, SEEK_SET) == 0) {
        // It is shown to people only: without it the lock still holds.
        static_cast<void>(Posix::writeAll(file.get(), text));
    }
}

void RunLock::release() {
    if (file) {
        if (::ftruncate(file.get(), 0) != 0) {
            // An old note is only ever shown while the lock is held.
        }
        ::flock(file.get(), LOCK_UN);
        file.reset();
    }
}

std::string RunDirectory::Record::marker() const {
    return markerFor(fileName);
}

void RunDirectory::Record::append(char what, const std::string& text) {
    if (!Posix::writeAll(file.get(), what + text + '\0')) {
        throw CException("cannot write " + path + ": " + std::strerror(errno));
    }
}

void RunDirectory::Record::addFile(const std::string& name) {
    append('f', name);
}

void RunDirectory::Record::addTool(const std::string& lockName, const std::string& name) {
    append('t', lockName + name);
}

void RunDirectory::Record::finish() {
    if (file) {
        ::unlink(path.c_str());
        ::flock(file.get(), LOCK_UN);
        file.reset();
    }
}

RunDirectory::RunDirectory(std::string directory) : path(std::move(directory)) {}

void RunDirectory::create() const {
    if (::mkdir(path.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
        throw CException("cannot make the directory " + path + ": " + std::strerror(errno));
    }
    struct stat made {};
    if (::lstat(path.c_str(), &made) != 0 || !S_ISDIR(made.st_mode) || made.st_uid != ::geteuid() ||
        (made.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        throw CException(path + " must be a directory that only its owner may write to");
    }
}

RunLock RunDirectory::tryLock(const std::string& name) const {
    const std::string fileName = path + name;
    UniqueFd file(::open(fileName.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_APPEND,
                         S_IRUSR | S_IWUSR));
    if (!file) {
        throw CException("cannot open the lock " + fileName + ": " + std::strerror(errno));
    }
    // One that was taken over between the two calls is nobody's lock any more.
    if (!lockNow(file.get()) || !isNamed(file.get(), fileName)) {
        return RunLock();
    }
    return RunLock(std::move(file));
}

RunLock RunDirectory::takeOver(const std::string& name,
                               const std::function<bool()>& isAbandoned) const {
    const RunLock guard = tryLock(name + kGuardSuffix);
    if (!guard || !isAbandoned()) {
        return RunLock();
    }
    ::unlink((path + name).c_str());
    return tryLock(name);
}

bool RunDirectory::isCurrent(const RunLock& lock, const std::string& name) const {
    return lock && isNamed(lock.descriptor(), path + name);
}

std::string RunDirectory::noteOf(const std::string& name) const {
    const std::string fileName = path + name;
    const UniqueFd file(::open(fileName.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    return file ? readRecord(file.get()) : "";
}

RunDirectory::Record RunDirectory::openRecord(Kind kind) const {
    Record record;
    std::string name = path + kNewPrefix + "XXXXXX";
    record.file.reset(::mkostemp(name.data(), O_CLOEXEC | O_APPEND));
    if (!record.file) {
        throw CException("cannot make a record in " + path + ": " + std::strerror(errno));
    }
    // The time makes the name, and with it the marker, unlike that of any earlier record.
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    record.fileName = kRecordPrefix + std::to_string(now.tv_sec) + "-" +
                      std::to_string(now.tv_nsec) + "-" + name.substr(name.size() - 6);
    record.path = path + record.fileName;
    const std::string first = kind == Kind::kUninterruptible ? "u" : "o";
    if (!lockNow(record.file.get()) || !Posix::writeAll(record.file.get(), first + '\0') ||
        ::rename(name.c_str(), record.path.c_str()) != 0) {
        const std::string reason = std::strerror(errno);
        ::unlink(name.c_str());
        throw CException("cannot make a record in " + path + ": " + reason);
    }
    return record;
}

std::list<std::string> RunDirectory::recordNames() const {
    std::list<std::string> names;
    const std::unique_ptr<DIR, DirectoryCloser> directory(::opendir(path.c_str()));
    if (!directory) {
        return names;
    }
    while (const dirent* entry = ::readdir(directory.get())) {
        const std::string name = entry->d_name;
        if (Text::startsWith(name, kRecordPrefix)) {
            names.push_back(name);
        } else if (Text::startsWith(name, kNewPrefix)) {
            struct stat made {};
            const std::string fileName = path + name;
            if (::lstat(fileName.c_str(), &made) == 0 &&
                made.st_mtime + kNewRecordSeconds < ::time(nullptr)) {
                ::unlink(fileName.c_str());
            }
        }
    }
    return names;
}

bool RunDirectory::clean(const Entry& entry) const {
    if (entry.kind == Kind::kOrdinary && !entry.marker.empty()) {
        const auto find = [&entry] { return processtree::carrying(entry.marker); };
        processtree::killAll(find, kKillRounds);
        if (!find().empty()) {
            return false;
        }
    }
    for (const std::string& name : entry.files) {
        if (::unlink(name.c_str()) != 0 && errno != ENOENT && errno != ENOTDIR) {
            return false;
        }
    }
    for (const auto& tool : entry.tools) {
        // Held: another run of the tool has its own copy there by now and removes it itself.
        const RunLock lock = tryLock(tool.first);
        if (lock && ::unlink(tool.second.c_str()) != 0 && errno != ENOENT) {
            return false;
        }
    }
    return true;
}

bool RunDirectory::sweepRecord(const std::string& name,
                               const std::function<void(const std::string&)>& told) const {
    const std::string fileName = path + name;
    const UniqueFd file(::open(fileName.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    if (!file || !lockNow(file.get()) || !isNamed(file.get(), fileName)) {
        return true;
    }
    const Entry entry = parse(readRecord(file.get()), name);
    if (!clean(entry)) {
        return false;
    }
    ::unlink(fileName.c_str());
    told(entry.kind == Kind::kUninterruptible
             ? "an uninterruptible job ended without its supervisor; its outcome is not known"
             : "tidied up after a process that was killed");
    return true;
}

int RunDirectory::sweep(const std::function<void(const std::string&)>& told) const {
    int left = 0;
    for (const std::string& name : recordNames()) {
        try {
            left += sweepRecord(name, told) ? 0 : 1;
        } catch (const CException&) {
            ++left;
        }
    }
    return left;
}

bool RunDirectory::hasOwned(Kind kind) const {
    for (const std::string& name : recordNames()) {
        const std::string fileName = path + name;
        const UniqueFd file(
            ::open(fileName.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
        if (!file) {
            continue;
        }
        const bool isUninterruptible =
            parse(readRecord(file.get()), name).kind == Kind::kUninterruptible;
        if (isUninterruptible == (kind == Kind::kUninterruptible) && !lockNow(file.get())) {
            return true;
        }
    }
    return false;
}
