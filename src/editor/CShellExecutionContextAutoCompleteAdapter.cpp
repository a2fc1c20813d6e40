#include "CShellExecutionContextAutoCompleteAdapter.h"

#include "CShellCommand.h"
#include "CShellCommandSet.h"
#include "CShellExecutionContext.h"
#include "Text.h"

namespace {

constexpr char kBasicSetName[] = "BASIC";
constexpr char kChangeLevel[] = "cd ";
constexpr std::string::size_type kChangeLevelLength = sizeof kChangeLevel - 1;

void appendCommands(std::list<std::string>& candidates, CShellCommandSet& set,
                    const std::string& typed) {
    // The map is ordered by name, so everything that begins with the text stands together.
    const auto& commands = set.getSupportedCommands();
    for (auto entry = commands.lower_bound(typed);
         entry != commands.end() && Text::startsWith(entry->first, typed); ++entry) {
        candidates.push_back(entry->first);
    }
}

void appendSets(std::list<std::string>& candidates, const std::list<CShellCommandSet*>& sets,
                const std::string& rest, bool atRoot) {
    for (CShellCommandSet* set : sets) {
        const std::string name = set->getCommandSetName();
        if (atRoot && name == kBasicSetName) {
            continue;
        }
        if (name.size() > rest.size() && Text::startsWith(name, rest)) {
            candidates.push_back(name);
        }
    }
}

}  // namespace

CShellExecutionContextAutoCompleteAdapter::CShellExecutionContextAutoCompleteAdapter(
    CShellExecutionContext* shellContext)
    : context(shellContext) {}

CShellExecutionContextAutoCompleteAdapter::~CShellExecutionContextAutoCompleteAdapter() = default;

std::list<std::string> CShellExecutionContextAutoCompleteAdapter::getPossibleCommandList(
    std::string typed) {
    std::list<std::string> candidates;
    const std::list<CShellCommandSet*> working = context->getWorkingCommandSet();
    const bool atRoot = context->getPathToWorkingCommandSet().empty();
    bool basicCovered = false;
    for (CShellCommandSet* set : working) {
        const bool isBasic = set->getCommandSetName() == kBasicSetName;
        if (atRoot && !isBasic) {
            continue;
        }
        basicCovered = basicCovered || isBasic;
        appendCommands(candidates, *set, typed);
    }
    if (candidates.empty() && Text::startsWith(typed, kChangeLevel)) {
        const std::string rest = typed.substr(kChangeLevelLength);
        if (atRoot) {
            appendSets(candidates, working, rest, atRoot);
        } else {
            for (CShellCommandSet* set : working) {
                appendSets(candidates, set->getChildCommands(), rest, atRoot);
            }
        }
    }
    CShellCommandSet* basic = context->getBasicCommandSet();
    if (!basicCovered && basic != nullptr) {
        appendCommands(candidates, *basic, typed);
    }
    return candidates;
}
