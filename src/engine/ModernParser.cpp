#include "ModernParser.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

#include "CCommandOption.h"
#include "CNode.h"
#include "CNodeGroup.h"
#include "CShellCommand.h"
#include "CShellCommandSet.h"
#include "CShellExecutionContext.h"
#include "CommandUsage.h"
#include "ConfigErrorCollector.h"
#include "RequestParser.h"
#include "Text.h"

namespace {

using Words = std::list<std::string>;

constexpr char kFold[] = "--fold";
constexpr char kNoFold[] = "--no-fold";

bool isOption(const std::string& word) {
    return word.size() > 1 && word.front() == '-';
}

// The option of the command that the word is; null when it is none of them.
const CCommandOption* optionNamed(const CShellCommand& command, const std::string& word) {
    for (const CCommandOption* option : command.getOptions()) {
        if ((!option->getShortOptName().empty() && word == "-" + option->getShortOptName()) ||
            (!option->getLongOptName().empty() && word == "--" + option->getLongOptName())) {
            return option;
        }
    }
    return nullptr;
}

// Takes --fold and --no-fold out of the words. The last one counts.
std::optional<bool> takeFolding(Words& words) {
    std::optional<bool> fold;
    for (auto word = words.begin(); word != words.end();) {
        const bool on = *word == kFold;
        if (on || *word == kNoFold) {
            fold = on;
            word = words.erase(word);
        } else {
            ++word;
        }
    }
    return fold;
}

struct Target {
    std::string option;
    std::optional<std::string> value;  // none at the end of the words
};

bool isTimeOut(const std::string& word) {
    return word == "-t" || word == "--timeout";
}

bool isTargetOption(const std::string& word) {
    return word == "-n" || word == "--node" || word == "-g" || word == "--group" || isTimeOut(word);
}

// Takes the options of targets and time-out, and their values, out of the words.
std::vector<Target> targetsIn(Words& words) {
    std::vector<Target> targets;
    for (auto word = words.begin(); word != words.end();) {
        if (!isTargetOption(*word)) {
            ++word;
            continue;
        }
        Target target{*word, std::nullopt};
        word = words.erase(word);
        if (word != words.end()) {
            target.value = *word;
            word = words.erase(word);
        }
        // A list may have blanks behind its commas.
        while (!isTimeOut(target.option) && word != words.end() && !target.value->empty() &&
               target.value->back() == ',') {
            *target.value += *word;
            word = words.erase(word);
        }
        targets.push_back(std::move(target));
    }
    return targets;
}

// What is wrong with the words behind the command, without its synopsis; empty when nothing is.
std::string faultOf(const CShellCommand& command, const Words& words) {
    const std::string name = command.getName();
    const CCommandOption* open = nullptr;  // waits for its value
    bool hasValue = false;
    Words given;
    for (const std::string& word : words) {
        if (!isOption(word)) {
            if (open == nullptr) {
                return name + ": unexpected word " + Text::printable(word);
            }
            hasValue = true;
            continue;
        }
        if (open != nullptr && !hasValue) {
            return name + ": a value is missing behind " + given.back();
        }
        const CCommandOption* option = optionNamed(command, word);
        if (option == nullptr) {
            return name + ": unknown option " + Text::printable(word);
        }
        open = option->getHasOptValue() ? option : nullptr;
        hasValue = false;
        given.push_back(word);
    }
    if (open != nullptr && !hasValue) {
        return name + ": a value is missing behind " + given.back();
    }
    for (const CCommandOption* option : command.getOptions()) {
        const bool isGiven = std::any_of(given.begin(), given.end(), [&](const std::string& word) {
            return optionNamed(command, word) == option;
        });
        if (option->getIsCompulsory() && !isGiven) {
            const std::string longName = option->getLongOptName();
            return name + ": option " +
                   (longName.empty() ? "-" + option->getShortOptName() : "--" + longName) +
                   " is missing";
        }
    }
    return "";
}

// A word of the command line that holds blanks was quoted for the shell that started this one. It
// must not fall apart when the words become one text.
std::string quoted(const std::string& word) {
    const bool fallsApart =
        word.find_first_of(" \t") != std::string::npos && word.find('"') == std::string::npos;
    return fallsApart ? "\"" + word + "\"" : word;
}

// The names of a list, without the blanks around them.
std::vector<std::string> namesIn(const std::string& list) {
    std::vector<std::string> names;
    for (const std::string& part : Text::split(list, ',')) {
        const std::string name = Text::trimmed(part);
        if (!name.empty()) {
            names.push_back(name);
        }
    }
    return names;
}

}  // namespace

Words ModernParser::split(const std::string& line) {
    Words words;
    std::string word;
    for (std::size_t at = 0; at < line.size(); ++at) {
        const bool isBlank = line[at] == ' ' || line[at] == '\t';
        if (isBlank && !word.empty()) {
            words.push_back(std::move(word));
            word.clear();
        }
        // What stands in quotes is one word; a quote that is never closed is a letter like others.
        const std::size_t end = line[at] == '"' ? line.find('"', at + 1) : std::string::npos;
        if (end != std::string::npos) {
            word += line.substr(at, end + 1 - at);
            at = end;
        } else if (!isBlank) {
            word += line[at];
        }
    }
    if (!word.empty()) {
        words.push_back(std::move(word));
    }
    return words;
}

std::string::size_type ModernParser::endOfOptions(const std::string& line) {
    const auto isBlankAt = [&](std::size_t at) {
        return at >= line.size() || line[at] == ' ' || line[at] == '\t';
    };
    for (std::size_t at = 0; at < line.size(); ++at) {
        const std::size_t quote = line[at] == '"' ? line.find('"', at + 1) : std::string::npos;
        if (quote != std::string::npos) {
            at = quote;
        } else if (line.compare(at, 2, "--") == 0 && isBlankAt(at + 2) &&
                   (at == 0 || isBlankAt(at - 1))) {
            return at;
        }
    }
    return std::string::npos;
}

std::optional<unsigned int> ModernParser::milliseconds(const std::string& text) {
    const std::size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
    const std::string unit = text.substr(digits);
    constexpr std::uint64_t kLongest = std::numeric_limits<unsigned int>::max();
    static const std::vector<std::pair<std::string, std::uint64_t>> kUnits{
        {"", 1}, {"ms", 1}, {"s", 1000}, {"m", 60000}, {"h", 3600000}};
    const auto known = std::find_if(kUnits.begin(), kUnits.end(),
                                    [&](const auto& each) { return each.first == unit; });
    if (digits == 0 || digits > 10 || known == kUnits.end()) {
        return std::nullopt;
    }
    const std::uint64_t value = std::stoull(text.substr(0, digits)) * known->second;
    return value <= kLongest ? std::optional<unsigned int>(static_cast<unsigned int>(value))
                             : std::nullopt;
}

std::optional<ModernParser::Request> ModernParser::parse(Words words,
                                                         ConfigErrorCollector* errors) const {
    std::optional<Request> request{std::in_place};
    if (!takeTargets(words, *request, errors)) {
        return std::nullopt;
    }
    Words withoutFolding = words;
    request->fold = takeFolding(withoutFolding);
    CommandFinder::Found found = finder.find(withoutFolding);
    if (found.command == nullptr) {
        reportUnknown(found, withoutFolding, errors);
        return std::nullopt;
    }
    // A command that has an option of such a name keeps it.
    if (optionNamed(*found.command, kFold) != nullptr ||
        optionNamed(*found.command, kNoFold) != nullptr) {
        request->fold.reset();
        found = finder.find(words);
        if (found.command == nullptr) {
            reportUnknown(found, words, errors);
            return std::nullopt;
        }
    }
    const std::string fault = faultOf(*found.command, found.rest);
    if (!fault.empty()) {
        errors->addError(0, fault + "\n" + commandusage::synopsis(*found.command));
        return std::nullopt;
    }
    for (std::string& word : found.rest) {
        word = quoted(word);
    }
    found.rest.push_front(found.path);
    request->command.setCommandRequest(RequestParser::joinWords(found.rest));
    return request;
}

std::optional<ModernParser::Request> ModernParser::parseRun(Words words,
                                                            ConfigErrorCollector* errors) const {
    std::optional<Request> request{std::in_place};
    request->fold = takeFolding(words);
    if (!takeTargets(words, *request, errors)) {
        return std::nullopt;
    }
    if (words.size() > 1) {
        errors->addError(0, "run: unexpected word " + Text::printable(words.back()) +
                                " in front of --\nrun -n NODES|-g GROUPS [-t TIME] -- LINE");
        return std::nullopt;
    }
    return request;
}

bool ModernParser::takeTargets(Words& words, Request& request, ConfigErrorCollector* errors) const {
    for (const Target& target : targetsIn(words)) {
        if (target.value) {
            take(target.option, *target.value, request, errors);
        } else {
            errors->addError(0, "A value is missing behind " + target.option);
        }
    }
    return errors->getSize() == 0;
}

void ModernParser::take(const std::string& option, const std::string& value, Request& request,
                        ConfigErrorCollector* errors) const {
    if (option == "-n" || option == "--node") {
        addNodes(value, request, errors);
    } else if (option == "-g" || option == "--group") {
        addGroups(value, request, errors);
    } else if (const auto limit = milliseconds(value)) {
        request.command.setTimeOut(*limit);
    } else {
        errors->addError(0, "Invalid time out: " + Text::printable(value));
    }
}

Words ModernParser::withoutOptions(const Words& words) {
    Words left = words;
    static_cast<void>(takeFolding(left));
    static_cast<void>(targetsIn(left));
    return left;
}

void ModernParser::addNodes(const std::string& names, Request& request,
                            ConfigErrorCollector* errors) const {
    for (const std::string& name : namesIn(names)) {
        const auto node = context.getNodeMap().find(name);
        if (node != context.getNodeMap().end()) {
            request.command.addNode(node->second);
        } else {
            errors->addError(0, "Error! node \"" + Text::printable(name) + "\" does not exist.");
        }
    }
}

void ModernParser::addGroups(const std::string& names, Request& request,
                             ConfigErrorCollector* errors) const {
    const std::list<CNodeGroup*>& groups = context.getNodeGroupList();
    for (const std::string& name : namesIn(names)) {
        const auto group = std::find_if(groups.begin(), groups.end(), [&](const CNodeGroup* each) {
            return each->getName() == name;
        });
        if (group != groups.end()) {
            request.command.addNodesAndGroups(*group);
        } else {
            errors->addError(0, "Error! group \"" + Text::printable(name) + "\" does not exist.");
        }
    }
}

void ModernParser::reportUnknown(const CommandFinder::Found& found, const Words& words,
                                 ConfigErrorCollector* errors) const {
    if (found.set != nullptr && found.rest.empty()) {
        const std::string name = RequestParser::joinWords(words);
        errors->addError(0, name + " is a set of commands; \"help " + name + "\" shows them.");
        return;
    }
    std::string text = "Unknown command: " + Text::printable(RequestParser::joinWords(words));
    std::string near;
    for (const std::string& name : finder.nearest(found.rest, found.set)) {
        near += (near.empty() ? "" : ", ") + name;
    }
    errors->addError(0, text + (near.empty() ? "" : "\nSimilar: " + near));
}
