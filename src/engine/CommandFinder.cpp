#include "CommandFinder.h"

#include <algorithm>
#include <map>
#include <utility>

#include "CShellCommand.h"
#include "CShellCommandSet.h"
#include "CShellExecutionContext.h"
#include "Text.h"

namespace {

constexpr std::size_t kMostSuggestions = 3;

using Words = std::list<std::string>;

const CShellCommandSet* findSet(const std::list<CShellCommandSet*>& sets, const std::string& name) {
    const auto found = std::find_if(sets.begin(), sets.end(),
                                    [&](const CShellCommandSet* set) { return set->equal(name); });
    return found != sets.end() ? *found : nullptr;
}

// How many of the words are the name; 0 when they do not begin with it.
std::size_t wordsOfName(const Words& words, const std::string& name) {
    const std::vector<std::string> parts = Text::split(name, ' ');
    auto word = words.begin();
    for (const std::string& part : parts) {
        if (word == words.end() || *word++ != part) {
            return 0;
        }
    }
    return parts.size();
}

// The first word as the names of a path, so that "tools/disk spin" reads as "tools disk spin".
Words withoutPath(const Words& words, bool& absolute) {
    Words all = words;
    absolute = false;
    if (all.empty() || all.front().find('/') == std::string::npos) {
        return all;
    }
    const std::string path = all.front();
    all.pop_front();
    absolute = path.front() == '/';
    Words names;
    for (const std::string& name : Text::split(path, '/')) {
        if (!name.empty()) {
            names.push_back(name);
        }
    }
    all.splice(all.begin(), names);
    return all;
}

// Takes the names of sets off the front of the words.
const CShellCommandSet* descend(const std::list<CShellCommandSet*>& sets, Words& words) {
    const CShellCommandSet* set = nullptr;
    const std::list<CShellCommandSet*>* level = &sets;
    while (!words.empty()) {
        const CShellCommandSet* next = findSet(*level, words.front());
        if (next == nullptr) {
            break;
        }
        set = next;
        level = &set->getChildCommands();
        words.pop_front();
    }
    return set;
}

// The number of letters to be changed, added or removed to make one of the other.
std::size_t distance(const std::string& left, const std::string& right) {
    std::vector<std::size_t> row(right.size() + 1);
    for (std::size_t i = 0; i < row.size(); ++i) {
        row[i] = i;
    }
    for (std::size_t i = 0; i < left.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i + 1;
        for (std::size_t k = 0; k < right.size(); ++k) {
            const std::size_t changed = diagonal + (left[i] == right[k] ? 0 : 1);
            diagonal = row[k + 1];
            row[k + 1] = std::min({changed, row[k] + 1, diagonal + 1});
        }
    }
    return row.back();
}

std::string firstWords(const Words& words, std::size_t count) {
    std::string text;
    for (const std::string& word : words) {
        if (count-- == 0) {
            break;
        }
        text += (text.empty() ? "" : " ") + word;
    }
    return text;
}

}  // namespace

const CShellCommandSet* CommandFinder::workingSet() const {
    if (context.getCWL().empty()) {
        return nullptr;
    }
    const std::list<CShellCommandSet*> working = context.getWorkingCommandSet();
    return working.empty() ? nullptr : working.front();
}

bool CommandFinder::findIn(const CShellCommandSet* set, const Words& words, Found& found) const {
    if (set == nullptr) {
        return false;
    }
    std::size_t longest = 0;
    for (const auto& [name, command] : set->getSupportedCommands()) {
        const std::size_t length = wordsOfName(words, name);
        if (length > longest) {
            longest = length;
            found.command = command;
        }
    }
    if (longest == 0) {
        return false;
    }
    const std::string path = set == context.getBasicCommandSet() ? "" : set->getPath();
    // A root's path has no "/" in front; the dispatcher wants one to begin at the root.
    const char* const root = !path.empty() && path.front() != '/' ? "/" : "";
    found.path = root + path + (path.empty() ? "" : "/") + found.command->getName();
    found.rest.assign(std::next(words.begin(), static_cast<std::ptrdiff_t>(longest)), words.end());
    return true;
}

CommandFinder::Found CommandFinder::find(const Words& typed) const {
    bool absolute = false;
    const Words words = withoutPath(typed, absolute);
    Found found;
    const bool isPath = !typed.empty() && typed.front().find('/') != std::string::npos;
    if (!isPath && (findIn(workingSet(), words, found) ||
                    findIn(context.getBasicCommandSet(), words, found))) {
        return found;
    }
    if (absolute && findIn(context.getBasicCommandSet(), words, found)) {
        return found;
    }
    Words rest = words;
    const CShellCommandSet* working = workingSet();
    if (!absolute && working != nullptr) {
        found.set = descend(working->getChildCommands(), rest);
    }
    if (found.set == nullptr) {
        rest = words;
        found.set = descend(context.getRootCommandSetList(), rest);
    }
    if (!findIn(found.set, rest, found)) {
        found.rest = rest;
    }
    return found;
}

std::vector<std::string> CommandFinder::nearest(const Words& words,
                                                const CShellCommandSet* set) const {
    std::multimap<std::size_t, std::string> ranked;
    const auto rank = [&](const std::string& name) {
        const auto length = static_cast<std::size_t>(std::count(name.begin(), name.end(), ' ') + 1);
        const std::string typed = firstWords(words, length);
        // A short name has too many neighbours to be worth telling.
        const std::size_t most = std::min<std::size_t>(2, name.size() / 2);
        const std::size_t away = distance(typed, name);
        if (away <= most) {
            ranked.emplace(away, name);
        }
    };
    const auto rankAll = [&](const CShellCommandSet* each) {
        if (each != nullptr) {
            for (const auto& entry : each->getSupportedCommands()) {
                rank(entry.first);
            }
        }
    };
    const CShellCommandSet* const level = set != nullptr ? set : workingSet();
    rankAll(level);
    if (set == nullptr) {
        rankAll(context.getBasicCommandSet());
    }
    const std::list<CShellCommandSet*>& below =
        level != nullptr ? level->getChildCommands() : context.getRootCommandSetList();
    for (const CShellCommandSet* each : below) {
        if (each != context.getBasicCommandSet()) {
            rank(each->getCommandSetName());
        }
    }
    std::vector<std::string> names;
    for (const auto& entry : ranked) {
        if (names.size() < kMostSuggestions) {
            names.push_back(entry.second);
        }
    }
    return names;
}
