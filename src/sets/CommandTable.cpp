#include "CommandTable.h"

#include <memory>
#include <utility>

#include "CCommandOption.h"
#include "CShellCommand.h"
#include "CShellCommandSet.h"
#include "ConfigErrorCollector.h"
#include "PathText.h"

OptionRow valueOption(const char* shortName, const char* longName, const char* description) {
    return {shortName, longName, OPTION_COMPULSORY, OPTION_WITH_VALUE, description};
}

OptionRow flagOption(const char* shortName, const char* longName, const char* description) {
    return {shortName, longName, OPTION_MAY_BE_OMITTED, OPTION_WITHOUT_VALUE, description};
}

TypedLine::TypedLine(CShellCommand& named, std::string typed)
    : command(named), line(std::move(typed)) {}

std::string TypedLine::value(const std::string& option) const {
    return command.getCommandOptionValue(option, line);
}

std::string TypedLine::path(const std::string& option) const {
    return pathtext::unquote(value(option));
}

bool TypedLine::holds(const std::string& text) const {
    // With the blank, a text that ends in one is also found at the end of the line.
    return (line + " ").find(text) != std::string::npos;
}

void addCommands(CShellCommandSet& set, const CommandTable& table) {
    for (const CommandRow& row : table) {
        auto command = std::make_unique<CShellCommand>(row.name, row.description, "", row.type,
                                                       row.destination);
        for (const OptionRow& option : row.options) {
            auto added = std::make_unique<CCommandOption>(option.shortName, option.longName,
                                                          option.compulsory, option.value,
                                                          option.description);
            command->addOption(added.get());
            (void)added.release();  // the command owns it now
        }
        command->setTimeOut(row.timeOutMs);
        if (*row.confirmation != '\0') {
            command->setCommandConfirmType(ONCE);
            command->setCommandConfirmMessage(row.confirmation);
        }
        if (*row.example != '\0') {
            command->addExample(row.example);
        }
        set.addSupportedCommand(command.get());
        (void)command.release();  // the set owns it now
    }
}

CShellCommand* findCommand(CShellCommandSet& set, const std::string& commandLine) {
    ConfigErrorCollector discarded;
    return set.findPossibleSupportedCommand(commandLine, &discarded);
}
