#include "Authorization.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "CException.h"
#include "Posix.h"
#include "Text.h"

namespace {

using protocol::FrameType;

struct Rule {
    SessionState state;
    FrameType type;
    std::uint8_t flags;  // exactly these
    Role lowest;
};

constexpr Rule kRules[] = {
    {SessionState::kGreeting, FrameType::kShellHello, 0, Role::kNone},
    {SessionState::kRequest, FrameType::kShellHello, 0, Role::kNone},
    {SessionState::kRequest, FrameType::kMac, 0, Role::kObserver},
    {SessionState::kRequest, FrameType::kExists, 0, Role::kObserver},
    {SessionState::kRequest, FrameType::kGet, 0, Role::kReader},
    {SessionState::kRequest, FrameType::kPut, 0, Role::kOperator},
    {SessionState::kRequest, FrameType::kExec, 0, Role::kOperator},
    {SessionState::kRequest, FrameType::kRunPackaged, 0, Role::kOperator},
    {SessionState::kRequest, FrameType::kExec, protocol::kFlagUninterruptible, Role::kFirmware},
    {SessionState::kRequest, FrameType::kRunPackaged, protocol::kFlagUninterruptible,
     Role::kFirmware},
    {SessionState::kUpload, FrameType::kData, 0, Role::kOperator},
    {SessionState::kUpload, FrameType::kEnd, 0, Role::kOperator},
};

struct RoleName {
    Role role;
    const char* name;
};

constexpr RoleName kRoleNames[] = {{Role::kObserver, "observer"},
                                   {Role::kReader, "reader"},
                                   {Role::kOperator, "operator"},
                                   {Role::kFirmware, "firmware"}};

struct MemoryFreer {
    void operator()(char* memory) const { std::free(memory); }
};

std::list<std::string> wordsOf(const std::string& text) {
    std::list<std::string> words;
    std::string::size_type from = text.find_first_not_of(' ');
    while (from != std::string::npos) {
        const std::string::size_type to = std::min(text.find(' ', from), text.size());
        words.push_back(text.substr(from, to - from));
        from = text.find_first_not_of(' ', to);
    }
    return words;
}

bool hasPart(const std::string& path, const std::string& part) {
    return (path + "/").find("/" + part + "/") != std::string::npos;
}

// The name under which the kernel knows an open file, all links resolved.
std::string nameOfOpen(int fd) {
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    std::string name(PATH_MAX + 1, '\0');
    const ssize_t length = ::readlink(link.c_str(), name.data(), name.size());
    // Without a name nothing can be compared.
    if (length <= 0 || static_cast<std::size_t>(length) >= name.size()) {
        return "";
    }
    name.resize(static_cast<std::size_t>(length));
    return name;
}

UniqueFd openRetried(const std::string& path, int flags) {
    UniqueFd fd = Posix::open(path, flags);
    if (!fd) {
        const int error = errno;
        throw CException(std::strerror(error));
    }
    return fd;
}

std::string resolved(const std::string& prefix) {
    const std::unique_ptr<char, MemoryFreer> real(::realpath(prefix.c_str(), nullptr));
    return real ? real.get() : "";
}

}  // namespace

const char* nameOf(Role role) {
    for (const RoleName& entry : kRoleNames) {
        if (entry.role == role) {
            return entry.name;
        }
    }
    return "none";
}

Verdict judgeFrame(SessionState state, Role role, std::uint8_t type, std::uint8_t flags) {
    for (const Rule& rule : kRules) {
        if (rule.state == state && static_cast<std::uint8_t>(rule.type) == type &&
            rule.flags == flags) {
            return role >= rule.lowest ? Verdict::kAllowed : Verdict::kRefused;
        }
    }
    return Verdict::kOutOfPlace;
}

std::string Authorization::apply(const std::string& name, const std::string& value) {
    if (name.empty()) {
        return "the name of a certificate is missing before \"=\"";
    }
    std::list<std::string> words = wordsOf(value);
    const std::string roleName = words.empty() ? "" : words.front();
    const auto* known = std::find_if(std::begin(kRoleNames), std::end(kRoleNames),
                                     [&](const RoleName& entry) { return roleName == entry.name; });
    if (known == std::end(kRoleNames)) {
        return name + ": \"" + roleName +
               "\" is not a role; the roles are observer, reader, operator and firmware";
    }
    words.pop_front();
    if (known->role != Role::kReader && !words.empty()) {
        return name + ": only a reader has path prefixes";
    }
    if (known->role == Role::kReader && words.empty()) {
        return name + ": a reader needs at least one path prefix";
    }
    Grant grant;
    grant.role = known->role;
    for (std::string& prefix : words) {
        if (prefix.size() > 1 && prefix.back() == '/') {
            prefix.pop_back();
        }
        const std::string fault = pathprefix::faultOf(prefix);
        if (!fault.empty()) {
            return std::string(name).append(": ").append(fault);
        }
        grant.prefixes.push_back(prefix);
    }
    grants[name] = grant;
    return "";
}

void Authorization::read(FILE* stream, std::vector<ConfigFault>& faults) {
    restricted = true;
    readSettings(
        stream, {"NAME=ROLE", " is named a second time"},
        [this](const std::string& name, const std::string& value) { return apply(name, value); },
        faults);
}

Authorization Authorization::load(const std::string& fileName, std::vector<ConfigFault>& faults) {
    Authorization rules;
    const Posix::File file = Posix::openFile(fileName, "re");
    if (file) {
        rules.read(file.get(), faults);
        return rules;
    }
    const int error = errno;
    // A link that leads nowhere is a mistake, not the wish for no rules.
    struct stat found {};
    if (error != ENOENT || ::lstat(fileName.c_str(), &found) == 0) {
        rules.restricted = true;
        faults.push_back({0, std::string("cannot be opened: ") + std::strerror(error)});
    }
    return rules;
}

bool Authorization::Grant::isLessThan(const Grant& other) const {
    if (role != other.role) {
        return role < other.role;
    }
    const auto isCovered = [this](const std::string& wanted) {
        return std::any_of(prefixes.begin(), prefixes.end(), [&](const std::string& prefix) {
            return pathprefix::covers(prefix, wanted);
        });
    };
    return !std::all_of(other.prefixes.begin(), other.prefixes.end(), isCovered);
}

Authorization::Grant Authorization::grantOf(const std::string& name) const {
    if (!restricted) {
        return {Role::kFirmware, {}};
    }
    const auto found = grants.find(name);
    return name.empty() || found == grants.end() ? Grant() : found->second;
}

namespace pathprefix {

std::string faultOf(const std::string& prefix) {
    if (prefix.empty() || prefix.front() != '/') {
        return "\"" + prefix + "\" is not an absolute path";
    }
    if (prefix != "/" && (hasPart(prefix, "") || hasPart(prefix, ".") || hasPart(prefix, ".."))) {
        return "\"" + prefix + "\" has an empty, \".\" or \"..\" part";
    }
    return "";
}

bool covers(const std::string& prefix, const std::string& path) {
    if (prefix == "/") {
        return !path.empty() && path.front() == '/';
    }
    return !prefix.empty() && Text::startsWith(path, prefix) &&
           (path.size() == prefix.size() || path[prefix.size()] == '/');
}

UniqueFd openBelow(const std::list<std::string>& prefixes, const std::string& path) {
    const auto named = [&](const std::string& prefix) { return covers(prefix, path); };
    // Before the file system is asked: not even whether something exists is told.
    if (hasPart(path, "..") || std::none_of(prefixes.begin(), prefixes.end(), named)) {
        throw Outside("outside the path prefixes of this certificate");
    }
    // A handle that reads nothing: opening a device or a FIFO in earnest would have effects.
    const UniqueFd handle = openRetried(path, O_PATH);
    const std::string name = nameOfOpen(handle.get());
    const bool isBelow =
        std::any_of(prefixes.begin(), prefixes.end(), [&](const std::string& prefix) {
            const std::string real = resolved(prefix);
            return named(prefix) && !real.empty() && !name.empty() && covers(real, name);
        });
    if (!isBelow) {
        throw Outside("outside the path prefixes of this certificate");
    }
    struct stat found {};
    if (::fstat(handle.get(), &found) != 0 || !S_ISREG(found.st_mode)) {
        throw CException(S_ISDIR(found.st_mode) ? "it is a directory" : "it is no regular file");
    }
    return openRetried("/proc/self/fd/" + std::to_string(handle.get()), O_RDONLY | O_NOCTTY);
}

}  // namespace pathprefix
