#include "FileTrust.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <system_error>

#include <pwd.h>

#include "Text.h"

namespace {

// The kernel follows as many symbolic links.
constexpr int kMostLinks = 40;
constexpr mode_t kWrittenByOthers = S_IWGRP | S_IWOTH;
constexpr mode_t kReadByOthers = S_IRGRP | S_IROTH;

std::string modeText(mode_t mode) {
    std::array<char, 8> text{};
    std::snprintf(text.data(), text.size(), "%04o", mode & 07777U);
    return text.data();
}

std::string userName(uid_t user) {
    std::array<char, 1024> memory{};
    passwd entry{};
    passwd* result = nullptr;
    if (::getpwuid_r(user, &entry, memory.data(), memory.size(), &result) == 0 &&
        result != nullptr) {
        return entry.pw_name;
    }
    return std::to_string(user);
}

// Quoted as one word for a shell.
std::string word(const std::string& path) {
    constexpr char kPlain[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789/._-+,:@%";
    if (!path.empty() && path.front() != '-' && path.find_first_not_of(kPlain) == path.npos) {
        return path;
    }
    std::string quoted = "'";
    for (const char c : path) {
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return quoted + "'";
}

void pushParts(const std::string& path, std::deque<std::string>& parts) {
    std::vector<std::string> own = Text::split(path, '/');
    own.erase(std::remove(own.begin(), own.end(), ""), own.end());
    parts.insert(parts.begin(), own.begin(), own.end());
}

std::string readLink(const std::string& path) {
    std::array<char, PATH_MAX> target{};
    const ssize_t length = ::readlink(path.c_str(), target.data(), target.size());
    return length <= 0 ? "" : std::string(target.data(), static_cast<std::size_t>(length));
}

std::string parentOf(const std::string& path) {
    const std::string::size_type slash = path.rfind('/');
    return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

bool canBeWrittenByOthers(const struct stat& status) {
    return (status.st_mode & kWrittenByOthers) != 0;
}

}  // namespace

std::string FileTrust::Finding::text() const {
    return path + " " + problem + ": " + remedy;
}

void FileTrust::check(const std::string& path, const struct stat& status, bool stickyIsEnough) {
    if (S_ISCHR(status.st_mode) || S_ISBLK(status.st_mode)) {
        return;
    }
    const bool isExcused =
        stickyIsEnough && S_ISDIR(status.st_mode) && (status.st_mode & S_ISVTX) != 0;
    const bool isForeign = status.st_uid != 0 && status.st_uid != self;
    // The mode of a symbolic link means nothing; its owner decides.
    const bool isOpen = !S_ISLNK(status.st_mode) && canBeWrittenByOthers(status) && !isExcused;
    if ((!isForeign && !isOpen) || !seen.insert(path).second) {
        return;
    }
    if (isForeign) {
        const std::string option = S_ISLNK(status.st_mode) ? "-h " : "";
        found.push_back({path, "belongs to " + userName(status.st_uid),
                         "chown " + option + userName(self) + " " + word(path)});
    }
    if (isOpen) {
        found.push_back({path, "can be written by others (mode " + modeText(status.st_mode) + ")",
                         "chmod go-w " + word(path)});
    }
}

void FileTrust::examine(const std::string& path) {
    std::deque<std::string> parts;
    pushParts(path, parts);
    if (path.empty() || path.front() != '/') {
        std::error_code failed;
        pushParts(std::filesystem::current_path(failed).string(), parts);
    }
    std::string at = "/";
    struct stat status {};
    if (::lstat("/", &status) == 0) {
        check(at, status, !parts.empty());
    }
    int links = 0;
    while (!parts.empty()) {
        const std::string part = parts.front();
        parts.pop_front();
        if (part == ".") {
            continue;
        }
        if (part == "..") {
            at = parentOf(at);
            continue;
        }
        const std::string next = (at == "/" ? "" : at) + "/" + part;
        if (::lstat(next.c_str(), &status) != 0) {
            return;
        }
        check(next, status, !parts.empty());
        if (!S_ISLNK(status.st_mode)) {
            at = next;
            continue;
        }
        const std::string target = readLink(next);
        if (target.empty() || ++links > kMostLinks) {
            return;
        }
        pushParts(target, parts);
        at = target.front() == '/' ? "/" : at;
    }
}

void FileTrust::examineEntries(const std::string& directory) {
    examine(directory);
    std::error_code failed;
    std::filesystem::directory_iterator entry(directory, failed);
    while (!failed && entry != std::filesystem::directory_iterator()) {
        examine(entry->path().string());
        entry.increment(failed);
    }
}

FileTrust::Finding FileTrust::examineSecret(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode) ||
        (status.st_mode & kReadByOthers) == 0) {
        return {};
    }
    return {path, "can be read by others (mode " + modeText(status.st_mode) + ")",
            "chmod go= " + word(path)};
}
