#include "CCommandDispatcher.h"

#include <utility>
#include <vector>

#include "CAlreadyExistException.h"
#include "CShellCommandSet.h"
#include "CommandText.h"
#include "ConfigErrorCollector.h"
#include "Text.h"

namespace {

const char kBasicLevel[] = "BASIC/";

std::string keyPrefix(const CShellCommandSet& set) {
    const std::string path = set.getPath();
    return path.empty() ? "" : path + "/";
}

bool isBasic(const CShellCommandSet& set) {
    return !set.hasParentCommandSet() && set.equal("BASIC");
}

// The spellings under which a full text may be stored: keys below "BASIC" begin with "/", those of
// the other roots do not, and the level "BASIC" itself is in no key.
std::vector<std::string> spellings(const std::string& text) {
    const std::string bare = text.front() == '/' ? text.substr(1) : text;
    std::vector<std::string> all = {text, "/" + text, bare};
    if (Text::startsWith(bare, kBasicLevel)) {
        const std::string below = bare.substr(sizeof(kBasicLevel) - 1);
        all.push_back(below);
        all.push_back("/" + below);
    }
    return all;
}

// The command name at the end of a key. A set that was moved after it was registered has another
// path than its keys.
std::string commandName(const std::string& key, const CShellCommandSet& set) {
    const std::string prefix = keyPrefix(set);
    return Text::startsWith(key, prefix) ? key.substr(prefix.size())
                                         : CCommandDispatcher::getCommandAndOptionPart(key);
}

}  // namespace

CCommandDispatcher::CCommandDispatcher() = default;

CCommandDispatcher::~CCommandDispatcher() = default;

void CCommandDispatcher::registerCommand(CShellCommandSet* set) {
    const std::string prefix = keyPrefix(*set);
    for (const auto& entry : set->getSupportedCommands()) {
        // The bare name is looked for, though a key may be longer: a name that clashes with a basic
        // command is refused, one that two other sets share is not. docs/compatibility.md.
        const auto sameKey = commands.find(prefix + entry.first);
        if (commands.count(entry.first) != 0 ||
            (sameKey != commands.end() && sameKey->second != set)) {
            throw CAlreadyExistException("Command \"" + entry.first + "\" already exists!");
        }
    }
    for (const auto& entry : set->getSupportedCommands()) {
        commands[prefix + entry.first] = set;
    }
}

int CCommandDispatcher::unregisterCommand(CShellCommandSet* set) {
    int erased = 0;
    for (auto entry = commands.begin(); entry != commands.end();) {
        if (entry->second == set) {
            entry = commands.erase(entry);
            ++erased;
        } else {
            ++entry;
        }
    }
    return erased;
}

std::string CCommandDispatcher::getCommandAndOptionPart(std::string line) {
    return commandtext::withoutPath(line);
}

std::string CCommandDispatcher::getCommandPart(std::string line) {
    const std::string whole = getCommandAndOptionPart(std::move(line));
    return Text::trimmed(whole.substr(0, whole.find(commandtext::kOptionStart)));
}

CShellCommand* CCommandDispatcher::findExeCommand(std::string workingPath, std::string& typedLine,
                                                  ConfigErrorCollector* errors) {
    ConfigErrorCollector unwanted;
    if (errors == nullptr) {
        errors = &unwanted;
    }
    std::string typed = Text::trimmed(typedLine);
    std::string prefix = std::move(workingPath);
    if (!typed.empty() && typed.front() == '/') {
        prefix.clear();
        typed = Text::trimmed(typed.substr(1));
    }
    if (typed.empty()) {
        return nullptr;
    }
    if (!prefix.empty() && prefix.back() != '/') {
        prefix += '/';
    }

    std::string text;
    CShellCommand* found = nullptr;
    if (CShellCommandSet* set = findSet(prefix, typed, text)) {
        found = set->findPossibleSupportedCommand(text, errors);
    } else {
        found = findByKeyInFront(prefix + typed, text, errors);
    }
    if (found != nullptr) {
        typedLine = text;
    }
    return found;
}

CShellCommandSet* CCommandDispatcher::findSet(const std::string& prefix, const std::string& typed,
                                              std::string& text) const {
    std::string words = typed.substr(0, typed.find(commandtext::kOptionStart));
    Text::trim(words);
    for (const std::string& key : spellings(prefix + words)) {
        const auto entry = commands.find(key);
        if (entry != commands.end()) {
            text = commandName(entry->first, *entry->second) + typed.substr(words.size());
            return entry->second;
        }
    }
    const auto entry = commands.find(getCommandPart(typed));
    if (entry == commands.end() || !isBasic(*entry->second)) {
        return nullptr;
    }
    text = getCommandAndOptionPart(typed);
    return entry->second;
}

CShellCommand* CCommandDispatcher::findByKeyInFront(const std::string& whole, std::string& text,
                                                    ConfigErrorCollector* errors) const {
    const std::vector<std::string> candidates = spellings(whole);
    for (const auto& entry : commands) {
        for (const std::string& candidate : candidates) {
            if (errors->getSize() != 0) {
                return nullptr;
            }
            if (!Text::startsWith(candidate, entry.first)) {
                continue;
            }
            text = commandName(entry.first, *entry.second) + candidate.substr(entry.first.size());
            CShellCommand* found = entry.second->findPossibleSupportedCommand(text, errors);
            if (found != nullptr) {
                return found;
            }
        }
    }
    return nullptr;
}
