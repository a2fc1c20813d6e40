#include "Authorization.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <utility>

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
        const std::string fault = PathPrefix::faultOf(prefix);
        if (!fault.empty()) {
            return std::string(name).append(": ").append(fault);
        }
        grant.prefixes.emplace_back(prefix);
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
        for (auto& entry : rules.grants) {
            for (PathPrefix& prefix : entry.second.prefixes) {
                static_cast<void>(prefix.open());
            }
        }
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
    const auto isCovered = [this](const PathPrefix& wanted) {
        return std::any_of(prefixes.begin(), prefixes.end(), [&](const PathPrefix& prefix) {
            return PathPrefix::covers(prefix.text(), wanted.text());
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

std::vector<int> Authorization::descriptors() const {
    std::vector<int> open;
    for (const auto& entry : grants) {
        for (const PathPrefix& prefix : entry.second.prefixes) {
            if (prefix.isOpen()) {
                open.push_back(prefix.descriptor());
            }
        }
    }
    return open;
}

std::vector<std::string> Authorization::missingPrefixes() const {
    std::vector<std::string> missing;
    for (const auto& entry : grants) {
        for (const PathPrefix& prefix : entry.second.prefixes) {
            if (!prefix.isOpen()) {
                missing.push_back("the prefix " + prefix.text() + " of the reader " + entry.first +
                                  " is not there: it opens nothing until the rules are read again");
            }
        }
    }
    return missing;
}
