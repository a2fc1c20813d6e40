#include "CShellCommand.h"

#include <algorithm>
#include <utility>

#include "CAlreadyExistException.h"
#include "CShellCommandSet.h"
#include "CUtil.h"
#include "ConfigErrorCollector.h"
#include "Text.h"

namespace {

const char kDefaultConfirmMessage[] = "Do you really want to execute this command?";

std::string neat(std::string text) {
    CUtil::makeNeatString(&text);
    return text;
}

}  // namespace

CShellCommand::CShellCommand(std::string commandName, std::string text, std::string line32,
                             std::string line64, COMMAND_TYPE commandType,
                             EXECUTE_DESTINATION target)
    : name(neat(std::move(commandName))),
      description(neat(std::move(text))),
      command32(neat(std::move(line32))),
      command64(neat(std::move(line64))),
      type(commandType),
      destination(target) {}

CShellCommand::CShellCommand(std::string commandName, std::string text, std::string line,
                             COMMAND_TYPE commandType, EXECUTE_DESTINATION target)
    : name(neat(std::move(commandName))),
      description(neat(std::move(text))),
      command(neat(std::move(line))),
      type(commandType),
      destination(target) {}

CShellCommand::~CShellCommand() {
    for (const CCommandOption* option : options) {
        delete option;
    }
}

std::string CShellCommand::getName() const {
    return name;
}

std::string CShellCommand::getDescription() const {
    return description;
}

std::string CShellCommand::getCommand() const {
    return command;
}

std::string CShellCommand::get32Command() const {
    return command32;
}

std::string CShellCommand::get64Command() const {
    return command64;
}

COMMAND_TYPE CShellCommand::getType() const {
    return type;
}

EXECUTE_DESTINATION CShellCommand::getDestination() const {
    return destination;
}

CShellCommandSet* CShellCommand::getCommandSet() const {
    return commandSet;
}

void CShellCommand::setCommandSet(CShellCommandSet* set) {
    commandSet = set;
}

bool CShellCommand::needToCheck32Or64BitCommand() const {
    return !command32.empty() || !command64.empty();
}

void CShellCommand::setTimeOut(unsigned milliseconds) {
    timeOut = milliseconds;
}

unsigned CShellCommand::getTimeOut() const {
    if (timeOut != 0 || commandSet == nullptr) {
        return timeOut;
    }
    return commandSet->getTimeOut();
}

void CShellCommand::setCommandConfirmType(CONFIRM_TYPE_ENUM confirmation) {
    confirmType = confirmation;
}

void CShellCommand::setCommandConfirmMessage(std::string message) {
    confirmMessage = std::move(message);
}

CONFIRM_TYPE_ENUM CShellCommand::getCommandConfirmType() const {
    if (confirmType == INHERITANCE && commandSet != nullptr) {
        return commandSet->getCommandSetConfirmType();
    }
    return confirmType;
}

std::string CShellCommand::getCommandConfirmMessage() const {
    if (confirmType == ONCE || confirmType == EACH) {
        return confirmMessage.empty() ? kDefaultConfirmMessage : confirmMessage;
    }
    if (confirmType == INHERITANCE && commandSet != nullptr) {
        return commandSet->getCommandSetConfirmMessage();
    }
    return "";
}

void CShellCommand::addOption(CCommandOption* option) {
    for (const CCommandOption* present : options) {
        if (*present == *option) {
            throw CAlreadyExistException(
                "The option [" + present->getShortOptName() + "|" + present->getLongOptName() +
                "] \"" + present->getDescription() + "\" already defines the same option!");
        }
    }
    options.push_back(option);
}

void CShellCommand::removeOption(CCommandOption* option) {
    options.remove(option);
}

void CShellCommand::removeOptions() {
    options.clear();
}

std::list<CCommandOption*> CShellCommand::getOptions() const {
    return options;
}

CCommandOption* CShellCommand::getCommandOption(std::string optionName) const {
    if (optionName.empty()) {
        return nullptr;
    }
    const auto found =
        std::find_if(options.begin(), options.end(), [&optionName](const CCommandOption* option) {
            return option->getShortOptName() == optionName ||
                   option->getLongOptName() == optionName;
        });
    return found == options.end() ? nullptr : *found;
}

std::string CShellCommand::getCommandOptionValue(std::string optionName, std::string line) const {
    const CCommandOption* option = getCommandOption(std::move(optionName));
    return option == nullptr ? "" : option->getOptionValue(std::move(line));
}

void CShellCommand::addExample(std::string example) {
    if (std::find(examples.begin(), examples.end(), example) != examples.end()) {
        // The wording and the odd quote stay; docs/compatibility.md.
        throw CAlreadyExistException("The example [" + example +
                                     "] \" already defines in the this command!");
    }
    examples.push_back(std::move(example));
}

void CShellCommand::setExamples(std::list<std::string> list) {
    examples = std::move(list);
}

std::list<std::string> CShellCommand::getExamples() const {
    return examples;
}

bool CShellCommand::equal(std::string other) const {
    return name == other;
}

bool CShellCommand::equal(const CShellCommand& other) const {
    return name == other.name;
}

bool CShellCommand::operator==(const CShellCommand& other) const {
    return equal(other);
}

bool CShellCommand::acceptsOptions() const {
    return type == BUILTIN_OPT || type == SCRIPT_OPT || type == DLLFUNCTION_OPT;
}

bool CShellCommand::validateCommand(std::string line, ConfigErrorCollector* errors) const {
    if (type == BUILTIN || type == SCRIPT || type == DLLFUNCTION) {
        return line == name;
    }
    if (!acceptsOptions() || !Text::startsWith(line, name)) {
        return false;
    }
    std::string rest = line.substr(name.size());
    Text::trim(rest);
    if (!rest.empty() && rest.front() != '-') {
        return false;
    }

    ConfigErrorCollector unwanted;
    if (errors == nullptr) {
        errors = &unwanted;
    }
    for (const CCommandOption* option : options) {
        try {
            option->processOption(&line);
        } catch (const CException& fault) {
            errors->addError(0, fault.getErrMsg());
        }
    }
    return errors->getSize() == 0 && line == name;
}
