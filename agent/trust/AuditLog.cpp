#include "AuditLog.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "FileDigest.h"
#include "Posix.h"
#include "Text.h"
#include "TimeStamp.h"
#include "UniqueFd.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kHashDigits = 64;
constexpr std::size_t kShownBytes = 8192;
constexpr std::size_t kShownNameBytes = 256;
// Of the end of the file. Nearly always the first holds the last line; the second is more than the
// longest one: every byte shown may take six.
constexpr off_t kTailBytes[] = {off_t{4} * 1024, off_t{128} * 1024};
// Disk space taken ahead, so that the audit does not stop the command that would free some; taken
// anew when half of it is used.
constexpr off_t kSpareBytes = off_t{256} * 1024;
constexpr off_t kBytesOfBlock = 512;  // as stat(2) counts them
constexpr std::chrono::seconds kReadLockLimit(5);
constexpr int kLockPollMs = 2;
constexpr char kStart[] = "{\"n\":";
constexpr char kPrevious[] = ",\"prev\":\"";
constexpr char kHash[] = ",\"hash\":\"";
constexpr char kEnd[] = "\"}";

// Where a chain has come to.
struct Link {
    std::uint64_t number = 0;
    std::string hash = std::string(kHashDigits, '0');
};

struct ParsedLine {
    Link link;
    std::string previous;
    std::string covered;  // by the hash
};

std::string hashOf(const std::string& text) {
    FileDigest digest;
    digest.update(text.data(), text.size());
    return FileDigest::toHex(digest.finish());
}

bool isHash(const std::string& text) {
    return text.size() == kHashDigits &&
           text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

bool parseNumber(const std::string& text, std::uint64_t& number) {
    const char* const end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, number);
    return !text.empty() && parsed.ec == std::errc() && parsed.ptr == end;
}

// False when the text, without its newline, is no line of an audit. The hash is not compared here.
bool parseLine(const std::string& text, ParsedLine& line) {
    constexpr std::size_t kTail = sizeof kHash - 1 + kHashDigits + sizeof kEnd - 1;
    const std::size_t numberAt = sizeof kStart - 1;
    const std::size_t numberEnd = text.find(',');
    const std::size_t previousAt = numberEnd + sizeof kPrevious - 1;
    if (!Text::startsWith(text, kStart) || numberEnd == std::string::npos ||
        text.compare(numberEnd, sizeof kPrevious - 1, kPrevious) != 0 ||
        text.size() < previousAt + kHashDigits + kTail) {
        return false;
    }
    const std::size_t tailAt = text.size() - kTail;
    line.previous = text.substr(previousAt, kHashDigits);
    line.covered = text.substr(0, tailAt);
    line.link.hash = text.substr(tailAt + sizeof kHash - 1, kHashDigits);
    return parseNumber(text.substr(numberAt, numberEnd - numberAt), line.link.number) &&
           text.compare(tailAt, sizeof kHash - 1, kHash) == 0 &&
           text.compare(text.size() - (sizeof kEnd - 1), std::string::npos, kEnd) == 0 &&
           isHash(line.previous) && isHash(line.link.hash);
}

std::string headText(const Link& link) {
    const std::string digits = std::to_string(link.number);
    return std::string(20 - digits.size(), '0') + digits + " " + link.hash + "\n";
}

// A head that stands at no line at all, as that of an audit not begun, has the hash of none: or one
// changed digit of the eighth line's number would make the head say nothing about the file.
bool parseHead(const std::string& text, Link& link) {
    return text.size() == 20 + 1 + kHashDigits + 1 &&
           parseNumber(text.substr(0, 20), link.number) && isHash(text.substr(21, kHashDigits)) &&
           headText({link.number, text.substr(21, 64)}) == text &&
           (link.hash = text.substr(21, kHashDigits), true) &&
           (link.number == 0) == (link.hash == Link().hash);
}

std::string readRange(int fd, off_t from, off_t to, const std::string& name) {
    std::string text(static_cast<std::size_t>(to - from), '\0');
    const ssize_t have = Posix::readAllAt(fd, text.data(), text.size(), from);
    if (have < 0) {
        Posix::throwErrno("cannot read " + name);
    }
    text.resize(static_cast<std::size_t>(have));
    return text;
}

void writeAt(int fd, const std::string& text, off_t at, const std::string& name) {
    if (!Posix::writeAllAt(fd, text, at)) {
        Posix::throwErrno("cannot write " + name);
    }
}

UniqueFd openFile(const std::string& name, int flags) {
    UniqueFd fd = Posix::open(name, flags | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK, 0600);
    if (!fd) {
        Posix::throwErrno("cannot open " + name);
    }
    struct stat found {};
    if (::fstat(fd.get(), &found) != 0 || !S_ISREG(found.st_mode)) {
        throw CException(name + " is not a regular file");
    }
    return fd;
}

struct stat examine(int fd, const std::string& name) {
    struct stat found {};
    if (::fstat(fd, &found) != 0) {
        Posix::throwErrno("cannot examine " + name);
    }
    return found;
}

off_t sizeOf(int fd, const std::string& name) {
    return examine(fd, name).st_size;
}

// Without effect where the file system cannot.
void keepSpare(int fd, const struct stat& found, off_t at) {
    if (off_t{found.st_blocks} * kBytesOfBlock < at + kSpareBytes / 2) {
        (void)::fallocate(fd, FALLOC_FL_KEEP_SIZE, at, kSpareBytes);
    }
}

// The file with the lock on it; the one that has the name, should it have been moved away
// meanwhile.
UniqueFd openLocked(const std::string& name, std::chrono::milliseconds patience) {
    const Clock::time_point limit = Clock::now() + patience;
    UniqueFd fd = openFile(name, O_RDWR | O_CREAT);
    for (;;) {
        if (::flock(fd.get(), LOCK_EX | LOCK_NB) == 0) {
            struct stat held {};
            struct stat named {};
            if (::fstat(fd.get(), &held) == 0 && ::stat(name.c_str(), &named) == 0 &&
                held.st_dev == named.st_dev && held.st_ino == named.st_ino) {
                return fd;
            }
            fd = openFile(name, O_RDWR | O_CREAT);
        } else if (errno != EWOULDBLOCK && errno != EINTR) {
            Posix::throwErrno("cannot lock " + name);
        } else {
            ::poll(nullptr, 0, kLockPollMs);
        }
        // A stopped process that holds the lock must not hang this one.
        if (Clock::now() >= limit) {
            throw CException("cannot lock " + name + ": somebody else holds the lock for too long");
        }
    }
}

// What is at the end of the file now, under its lock.
struct Tail {
    Link last;
    off_t completeEnd = 0;  // of the last whole line
    bool torn = false;      // something follows that is no whole line
};

Tail readTail(int fd, off_t size, const std::string& name) {
    Tail tail;
    for (const off_t most : kTailBytes) {
        const off_t from = std::max<off_t>(0, size - most);
        const std::string text = readRange(fd, from, size, name);
        const std::size_t newline = text.rfind('\n');
        const std::size_t before = newline == 0 || newline == std::string::npos
                                       ? std::string::npos
                                       : text.rfind('\n', newline - 1);
        if (before == std::string::npos && from > 0 && most != *std::rbegin(kTailBytes)) {
            continue;  // the line begins further in front
        }
        tail.completeEnd =
            newline == std::string::npos ? from : from + static_cast<off_t>(newline) + 1;
        tail.torn = tail.completeEnd != size;
        const std::size_t begin = before == std::string::npos ? 0 : before + 1;
        ParsedLine line;
        if (newline != std::string::npos && parseLine(text.substr(begin, newline - begin), line)) {
            tail.last = line.link;
        }
        break;
    }
    return tail;
}

Link readHead(int fd, const std::string& name) {
    Link link;
    if (!parseHead(readRange(fd, 0, std::min<off_t>(sizeOf(fd, name), 4096), name), link)) {
        return Link();
    }
    return link;
}

std::string member(const char* name, const std::string& text, std::size_t maxBytes) {
    std::string member =
        std::string(",\"") + name + "\":\"" + AuditLog::escape(text, maxBytes) + "\"";
    if (text.size() > maxBytes) {
        member += std::string(",\"") + name + "_bytes\":" + std::to_string(text.size()) + ",\"" +
                  name + "_sha256\":\"" + hashOf(text) + "\"";
    }
    return member;
}

std::string makeLine(Link& link, const AuditEntry& entry, const std::string& event,
                     const std::string& outcome, long long millis) {
    std::string line = kStart + std::to_string(link.number + 1) + kPrevious + link.hash + "\"";
    line += ",\"time\":\"" + timestamp::now() + "\"";
    line += member("event", event, kShownNameBytes);
    line += member("id", entry.id, kShownNameBytes);
    line += member("certificate", entry.certificate, kShownNameBytes);
    line += member("address", entry.address, kShownNameBytes);
    line += member("user", entry.user, kShownNameBytes);
    line += ",\"command\":" + std::to_string(entry.number);
    line += member("request", entry.request, kShownNameBytes);
    line += member("what", entry.what, kShownBytes);
    if (!entry.hmac.empty()) {
        line += member("what_hmac", entry.hmac, kShownNameBytes);
    }
    if (event != "start") {
        line += member("outcome", outcome, kShownNameBytes * 2);
        line += ",\"ms\":" + std::to_string(millis);
    }
    ++link.number;
    link.hash = hashOf(line);
    return line + kHash + link.hash + kEnd + "\n";
}

AuditLog::Finding finding(long line, const std::string& text, long good) {
    AuditLog::Finding found;
    found.line = line;
    found.text = text;
    found.lines = good;
    return found;
}

}  // namespace

std::string AuditLog::escape(const std::string& text, std::string::size_type maxBytes) {
    std::string escaped;
    for (const char c : text.substr(0, maxBytes)) {
        if (c == '"' || c == '\\') {
            escaped += '\\';
            escaped += c;
        } else if (Text::isPlain(c)) {
            escaped += c;
        } else {
            escaped += "\\u00";
            Text::appendHex(escaped, c);
        }
    }
    return escaped;
}

void AuditLog::append(const AuditEntry& entry, const std::string& event, const std::string& outcome,
                      long long millis) const {
    write(entry, {{event.c_str(), outcome, millis}});
}

void AuditLog::appendWhole(const AuditEntry& entry, const std::string& outcome,
                           long long millis) const {
    write(entry, {{"start", "", 0}, {"end", outcome, millis}});
}

void AuditLog::write(const AuditEntry& entry, const std::vector<Event>& events) const {
    if (!isOn()) {
        return;
    }
    const UniqueFd fd = openLocked(file, patience);
    const std::string headFile = AuditLog::headFileOf(file);
    const UniqueFd head = openFile(headFile, O_RDWR | O_CREAT);
    const Link kept = readHead(head.get(), headFile);
    const struct stat found = examine(fd.get(), file);
    const off_t size = found.st_size;
    const Tail tail = readTail(fd.get(), size, file);
    // The head is written last: it may be behind after a crash. Where it is ahead, lines are gone;
    // going on from it keeps the gap to be seen.
    Link link = kept.number > tail.last.number ? kept : tail.last;
    off_t at = size;
    std::string text;
    if (tail.torn && tail.last.number >= kept.number) {
        // Of a line that nobody was told to be written.
        at = tail.completeEnd;
    } else if (tail.torn) {
        text = "\n";
    }
    for (const Event& event : events) {
        text += makeLine(link, entry, event.name, event.outcome, event.millis);
    }
    keepSpare(fd.get(), found, at);
    try {
        if (at != size && ::ftruncate(fd.get(), at) != 0) {
            Posix::throwErrno("cannot write " + file);
        }
        writeAt(fd.get(), text, at, file);
        if (::fdatasync(fd.get()) != 0) {
            Posix::throwErrno("cannot write " + file);
        }
        writeAt(head.get(), headText(link), 0, headFile);
    } catch (const CException&) {
        // What cannot be taken back either shows as torn, and is taken back by the next append.
        (void)::ftruncate(fd.get(), at);
        throw;
    }
}

std::string AuditLog::tryAppend(const AuditEntry& entry, const std::string& event,
                                const std::string& outcome, long long millis) const noexcept {
    try {
        append(entry, event, outcome, millis);
        return "";
    } catch (const std::exception& fault) {
        return fault.what();
    }
}

void AuditLog::check() const {
    if (isOn()) {
        openFile(file, O_RDWR | O_CREAT);
        openFile(AuditLog::headFileOf(file), O_RDWR | O_CREAT);
    }
}

AuditLog::Finding AuditLog::verify(const std::string& lines, const std::string& head) {
    Link kept;
    if (!parseHead(head, kept)) {
        return finding(0, "the head file is damaged: cut-off lines cannot be ruled out", 0);
    }
    Link last;
    bool headSeen = kept.number == 0;
    long number = 0;
    std::size_t from = 0;
    while (from < lines.size()) {
        const std::size_t newline = lines.find('\n', from);
        if (newline == std::string::npos) {
            return finding(number + 1, "the last line is not whole", number);
        }
        ParsedLine line;
        if (!parseLine(lines.substr(from, newline - from), line)) {
            return finding(number + 1, "this is no line of an audit", number);
        }
        if (hashOf(line.covered) != line.link.hash) {
            return finding(number + 1, "the line was changed: its hash does not fit", number);
        }
        if (line.previous != last.hash || line.link.number != last.number + 1) {
            return finding(number + 1, "the line does not follow the one before it", number);
        }
        last = line.link;
        ++number;
        from = newline + 1;
        if (last.number == kept.number) {
            headSeen = last.hash == kept.hash;
            if (!headSeen) {
                return finding(number, "the line is not the one in the head file", number - 1);
            }
        }
    }
    if (!headSeen) {
        return finding(number + 1,
                       "lines are missing at the end: there were " + std::to_string(kept.number),
                       number);
    }
    return finding(0, "", number);
}

AuditLog::Finding AuditLog::verifyFile(const std::string& fileName) {
    const std::string headFile = AuditLog::headFileOf(fileName);
    const UniqueFd fd = openFile(fileName, O_RDONLY);
    // Not between a line and its head.
    const Clock::time_point limit = Clock::now() + kReadLockLimit;
    while (::flock(fd.get(), LOCK_SH | LOCK_NB) != 0 && Clock::now() < limit) {
        ::poll(nullptr, 0, kLockPollMs);
    }
    const UniqueFd head = openFile(headFile, O_RDONLY);
    return verify(
        readRange(fd.get(), 0, sizeOf(fd.get(), fileName), fileName),
        readRange(head.get(), 0, std::min<off_t>(sizeOf(head.get(), headFile), 4096), headFile));
}
