#include "CommandUsage.h"

#include "CCommandOption.h"
#include "CShellCommand.h"

namespace commandusage {
namespace {

std::string namesOf(const CCommandOption& option) {
    const std::string shortName = option.getShortOptName();
    const std::string longName = option.getLongOptName();
    std::string names = shortName.empty() ? "" : "-" + shortName;
    if (!longName.empty()) {
        names += (names.empty() ? "--" : "|--") + longName;
    }
    return names;
}

}  // namespace

std::string synopsis(const CShellCommand& command) {
    std::string line = command.getName();
    for (const CCommandOption* option : command.getOptions()) {
        const std::string text = namesOf(*option) + (option->getHasOptValue() ? " VALUE" : "");
        line += option->getIsCompulsory() ? " " + text : " [" + text + "]";
    }
    if (command.getDestination() == SLAVE) {
        line += " -n NODES|-g GROUPS [-t TIME]";
    }
    return line + "\n";
}

std::string help(const CShellCommand& command) {
    std::string text = synopsis(command) + command.getDescription() + "\n";
    std::string lead = "  Option: ";
    for (const CCommandOption* option : command.getOptions()) {
        text += lead + option->toString() + "\n";
        lead = "          ";
    }
    lead = "  Example: ";
    for (const std::string& example : command.getExamples()) {
        text += lead + example + "\n";
        lead = "           ";
    }
    return text;
}

}  // namespace commandusage
