#include "RequestParser.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <limits>
#include <sstream>
#include <utility>
#include <vector>

#include "CCommandDispatcher.h"
#include "CCommandExecutionContext.h"
#include "CNode.h"
#include "CNodeGroup.h"
#include "CShellCommandSet.h"
#include "CShellExecutionContext.h"
#include "CSimpleOptTempl.h"
#include "CUtil.h"
#include "ConfigErrorCollector.h"

namespace {

using Scanner = CSimpleOptTempl<char>;

constexpr int kNodeOption = 0;
constexpr int kGroupOption = 1;
constexpr int kTimeOutOption = 2;

constexpr Scanner::Option kProgramOptions[] = {{0, "-cfg", Scanner::kRequiredSeparate},
                                               {0, "--configuration", Scanner::kRequiredSeparate},
                                               {-1, nullptr, Scanner::kNone}};

constexpr Scanner::Option kCommandOptions[] = {
    {kNodeOption, "-n", Scanner::kRequiredSeparate},
    {kNodeOption, "--node", Scanner::kRequiredSeparate},
    {kGroupOption, "-g", Scanner::kRequiredSeparate},
    {kGroupOption, "--group", Scanner::kRequiredSeparate},
    {kTimeOutOption, "-t", Scanner::kRequiredSeparate},
    {kTimeOutOption, "--timeout", Scanner::kRequiredSeparate},
    {-1, nullptr, Scanner::kNone}};

struct FoundOption {
    int id;
    std::string value;
};

// Takes the option and the value behind it out of the words. Only from there on, so that an equal
// word earlier in the line, an argument of the command perhaps, stays where it is.
void removeOptionAt(std::list<std::string>& words, std::size_t position, const std::string& option,
                    const std::string& value) {
    std::list<std::string> tail;
    tail.splice(tail.end(), words, std::next(words.begin(), static_cast<std::ptrdiff_t>(position)),
                words.end());
    removeOneArg(&tail, option);
    removeOneArg(&tail, value);
    words.splice(words.end(), tail);
}

// Every complete option of the table, in the order typed; they leave the words.
std::list<FoundOption> takeOptions(std::list<std::string>& words, const Scanner::Option* table) {
    const std::list<std::string> typed = words;
    std::vector<const char*> arguments{""};
    for (const std::string& word : typed) {
        arguments.push_back(word.c_str());
    }
    std::list<FoundOption> found;
    Scanner scanner(static_cast<int>(arguments.size()), arguments.data(), table);
    while (scanner.next()) {
        if (scanner.lastError() != Scanner::kSuccess) {
            continue;
        }
        const std::size_t position =
            static_cast<std::size_t>(scanner.optionIndex()) - 1 - 2 * found.size();
        found.push_back({scanner.optionId(), scanner.optionArgument()});
        removeOptionAt(words, position, scanner.optionText(), found.back().value);
    }
    return found;
}

void addNodes(const std::string& names, CCommandExecutionContext& cmd, CShellExecutionContext& ctx,
              ConfigErrorCollector* errors) {
    for (std::string name : CUtil::splitForTokens(names, ",")) {
        CUtil::trim(name);
        const auto node = ctx.getNodeMap().find(name);
        if (node != ctx.getNodeMap().end()) {
            cmd.addNode(node->second);
        } else {
            errors->addError(0, "Error! node \"" + name + "\" does not exist.");
        }
    }
}

void addGroups(const std::string& names, CCommandExecutionContext& cmd, CShellExecutionContext& ctx,
               ConfigErrorCollector* errors) {
    for (std::string name : CUtil::splitForTokens(names, ",")) {
        CUtil::trim(name);
        const std::list<CNodeGroup*>& groups = ctx.getNodeGroupList();
        const auto group = std::find_if(groups.begin(), groups.end(), [&](const CNodeGroup* known) {
            return known->getName() == name;
        });
        if (group != groups.end()) {
            cmd.addNodesAndGroups(*group);
        } else {
            errors->addError(0, "Error! group \"" + name + "\" does not exist.");
        }
    }
}

void setTimeOut(const std::string& value, CCommandExecutionContext& cmd,
                ConfigErrorCollector* errors) {
    constexpr long kLongest = std::numeric_limits<unsigned int>::max();
    // "12s" is 12, and one character that is no digit is 0; docs/compatibility.md.
    const long milliseconds = std::strtol(value.c_str(), nullptr, 10);
    // A lone character that is no number passes as 0, the configured time-out.
    if (milliseconds > 0 || (milliseconds == 0 && value.size() == 1)) {
        cmd.setTimeOut(static_cast<unsigned int>(std::min(milliseconds, kLongest)));
    } else {
        errors->addError(0, "Invalid time out: " + value);
    }
}

std::string firstWord(const std::string& text) {
    return text.substr(0, text.find(' '));
}

// The set that a path of names leads to, from the working level or, for a path that begins with
// "/", from the root; null when there is none.
CShellCommandSet* findSet(CShellExecutionContext& ctx, const std::string& path) {
    CShellCommandSet* found = nullptr;
    const bool absolute = !path.empty() && path.front() == '/';
    std::list<CShellCommandSet*> level =
        absolute ? ctx.getRootCommandSetList() : ctx.getWorkingCommandSet();
    if (!absolute && !ctx.getCWL().empty() && !level.empty()) {
        level = level.front()->getChildCommands();
    }
    std::istringstream names(path.substr(absolute ? 1 : 0));
    for (std::string name; std::getline(names, name, '/');) {
        const auto set = std::find_if(level.begin(), level.end(),
                                      [&](const CShellCommandSet* it) { return it->equal(name); });
        if (set == level.end()) {
            return nullptr;
        }
        found = *set;
        level = found->getChildCommands();
    }
    return found;
}

// Whether the text, or its first word, is a command of the set or the first word of one.
bool namesCommandOf(const CShellCommandSet* set, const std::string& text) {
    if (set == nullptr) {
        return false;
    }
    const std::string first = firstWord(text);
    for (const auto& entry : set->getSupportedCommands()) {
        if (entry.first == text || firstWord(entry.first) == first) {
            return true;
        }
    }
    return false;
}

// Whether the dispatcher takes the line for a command, right down to its options; or for one of the
// basic commands with some path in front, whatever its options.
bool isAccepted(CShellExecutionContext& ctx, const std::string& request) {
    ConfigErrorCollector unwanted;
    std::string line = request;
    if (ctx.findExeCommand(ctx.getPathToWorkingCommandSet(), line, &unwanted) != nullptr) {
        return true;
    }
    const CShellCommandSet* basic = ctx.getBasicCommandSet();
    return basic != nullptr &&
           basic->getSupportedCommands().count(CCommandDispatcher::getCommandPart(request)) != 0;
}

}  // namespace

void removeOneArg(std::list<std::string>* args, std::string word) {
    const auto found = std::find(args->begin(), args->end(), word);
    if (found != args->end()) {
        args->erase(found);
    }
}

std::list<std::string> RequestParser::takeNodeFiles(std::list<std::string>& words) {
    std::list<std::string> names;
    for (FoundOption& option : takeOptions(words, kProgramOptions)) {
        names.push_back(std::move(option.value));
    }
    return names;
}

std::unique_ptr<CCommandExecutionContext> RequestParser::parse(std::string line,
                                                               ConfigErrorCollector* errors) const {
    CUtil::trimTwoSpace(line);
    // A plain split: quotes stay in the words, for the command's own options to be told apart by.
    std::list<std::string> words;
    std::istringstream stream(line);
    for (std::string word; std::getline(stream, word, ' ');) {
        if (!word.empty()) {
            words.push_back(word);
        }
    }
    return parse(words, errors);
}

std::unique_ptr<CCommandExecutionContext> RequestParser::parse(std::list<std::string>& words,
                                                               ConfigErrorCollector* errors) const {
    auto request = std::make_unique<CCommandExecutionContext>();
    for (const FoundOption& option : takeOptions(words, kCommandOptions)) {
        switch (option.id) {
            case kNodeOption:
                addNodes(option.value, *request, context, errors);
                break;
            case kGroupOption:
                addGroups(option.value, *request, context, errors);
                break;
            default:
                setTimeOut(option.value, *request, errors);
                break;
        }
    }
    request->setCommandRequest(joinWords(words));
    return request;
}

std::string RequestParser::joinWords(const std::list<std::string>& words) {
    std::string line;
    for (const std::string& word : words) {
        line += line.empty() ? word : " " + word;
    }
    CUtil::trim(line);
    return line;
}

bool RequestParser::namesUsableCommand(const std::string& request) const {
    if (request.empty()) {
        return false;
    }
    const std::list<CShellCommandSet*> working = context.getWorkingCommandSet();
    const std::string first = firstWord(request);
    if (std::any_of(working.begin(), working.end(),
                    [&](const CShellCommandSet* set) { return set->equal(first); })) {
        return true;
    }
    const std::string::size_type slash = first.rfind('/');
    if (slash != std::string::npos) {
        const std::string path = request.substr(0, slash == 0 ? 1 : slash);
        const CShellCommandSet* set =
            path == "/" ? context.getBasicCommandSet() : findSet(context, path);
        return namesCommandOf(set, request.substr(slash + 1)) || isAccepted(context, request);
    }
    if (namesCommandOf(context.getBasicCommandSet(), request)) {
        return true;
    }
    return (!context.getCWL().empty() && std::any_of(working.begin(), working.end(),
                                                     [&](const CShellCommandSet* set) {
                                                         return namesCommandOf(set, request);
                                                     })) ||
           isAccepted(context, request);
}
