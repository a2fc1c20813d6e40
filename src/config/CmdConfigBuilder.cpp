#include "CmdConfigBuilder.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <utility>

#include "CAlreadyExistException.h"
#include "CCommandOption.h"
#include "CConfiguredCommandSet.h"
#include "CException.h"
#include "CShellCommand.h"
#include "CShellExecutionContext.h"
#include "CUtil.h"
#include "CmdConfigFile.h"
#include "CmdNotation.h"
#include "ConfigErrorCollector.h"

namespace {

constexpr char kOptionSeparator[] = ";;";

struct TypeWord {
    const char* word;
    COMMAND_TYPE type;
};

constexpr TypeWord kTypeWords[] = {
    {"BUILTIN", BUILTIN},       {"BUILTIN_OPT", BUILTIN_OPT}, {"SCRIPT", SCRIPT},
    {"SCRIPT_OPT", SCRIPT_OPT}, {"DLLFUNCTION", DLLFUNCTION}, {"DLLFUNCTION_OPT", DLLFUNCTION_OPT},
};

const TypeWord* findType(const std::string& word) {
    for (const TypeWord& known : kTypeWords) {
        if (word == known.word) {
            return &known;
        }
    }
    return nullptr;
}

bool isFlag(char character) {
    return character == '0' || character == '1';
}

std::unique_ptr<CShellCommand> createCommand(const CmdBlock& block) {
    const TypeWord* const known = findType(block.type);
    const COMMAND_TYPE type = known == nullptr ? BUILTIN : known->type;
    const EXECUTE_DESTINATION destination = block.destination == "MASTER" ? MASTER : SLAVE;
    auto command = block.cmd.empty()
                       ? std::make_unique<CShellCommand>(block.name, block.description, block.cmd32,
                                                         block.cmd64, type, destination)
                       : std::make_unique<CShellCommand>(block.name, block.description, block.cmd,
                                                         type, destination);
    command->setExamples(block.examples);
    command->setCommandConfirmType(KelshEnum::resolveConformType(block.confirmtype));
    command->setCommandConfirmMessage(block.confirmmsg);
    return command;
}

}  // namespace

CmdConfigBuilder::CmdConfigBuilder(CShellExecutionContext& shellContext,
                                   ConfigErrorCollector* collector)
    : context(shellContext), errors(collector) {}

void CmdConfigBuilder::build(const CmdSetBlock& block) {
    CShellCommandSet* parent = nullptr;
    std::unique_ptr<CShellCommandSet> set = createSet(block, parent);
    // The commands of a set that is refused have faults of their own, names given twice included.
    CShellCommandSet refused(block.name, block.description);
    for (const std::unique_ptr<CmdBlock>& command : block.commands) {
        buildCommand(*command, set ? *set : refused);
    }
    if (set) {
        attach(block.line, std::move(set), parent);
    }
}

// Null when the set is refused.
std::unique_ptr<CShellCommandSet> CmdConfigBuilder::createSet(const CmdSetBlock& block,
                                                              CShellCommandSet*& parent) {
    std::string name = block.name;
    bool valid = true;
    if (name.empty()) {
        errors->addError(block.line, "\"name\" is not defined for [CmdSet].");
        valid = false;
    } else if (name.back() == '/') {
        errors->addError(block.line,
                         "Invalid command set name definition for [CmdSet]: " + block.name);
        valid = false;
    }
    const bool hasPath = valid && name.find('/') != std::string::npos;
    if (block.description.empty()) {
        errors->addError(block.line, "\"description\" is not defined for [CmdSet].");
        valid = false;
    }
    if (hasPath) {
        parent = cmdnotation::resolveParent(block.line, name, context, errors);
        valid = valid && parent != nullptr;
    }
    unsigned int timeOut = 0;
    // A faulty time-out does not refuse the set: its commands use the default.
    static_cast<void>(resolveTimeOut(block.line, block.timeout, timeOut));
    if (!valid) {
        return nullptr;
    }
    auto set = std::make_unique<CConfiguredCommandSet>(name, block.description);
    set->setCommandSetConfirmType(KelshEnum::resolveConformType(block.confirmtype));
    set->setCommandSetConfirmMessage(block.confirmmsg);
    set->setTimeOut(timeOut);
    return set;
}

void CmdConfigBuilder::attach(int line, std::unique_ptr<CShellCommandSet> set,
                              CShellCommandSet* parent) {
    try {
        if (parent != nullptr) {
            parent->addChildCommand(set.get());
        }
    } catch (const CException& error) {
        errors->addError(line, error.getErrMsg());
        return;
    }
    // Now the parent owns it or, for a root, the context.
    context.addCommandSet(set.release());
}

void CmdConfigBuilder::buildCommand(const CmdBlock& block, CShellCommandSet& set) {
    bool valid = checkRequired(block);
    valid = checkWords(block) && valid;
    valid = checkCommandLines(block) && valid;
    unsigned int timeOut = 0;
    valid = resolveTimeOut(block.line, block.timeout, timeOut) && valid;
    std::list<std::unique_ptr<CCommandOption>> options = resolveOptions(block);
    // A command that is refused for another fault is made all the same, to see what else is wrong.
    std::unique_ptr<CShellCommand> command = createCommand(block);
    command->setTimeOut(timeOut);
    addOptions(block.line, std::move(options), *command);
    try {
        if (valid) {
            set.addSupportedCommand(command.get());
            static_cast<void>(command.release());  // the set owns it
        } else if (set.isSupported(command->getName())) {
            throw CAlreadyExistException(command->getName() + " already exists!");
        }
    } catch (const CException& error) {
        errors->addError(block.line, error.getErrMsg());
    }
}

void CmdConfigBuilder::addOptions(int line, std::list<std::unique_ptr<CCommandOption>> options,
                                  CShellCommand& command) {
    for (std::unique_ptr<CCommandOption>& option : options) {
        try {
            command.addOption(option.get());
            static_cast<void>(option.release());  // the command owns it
        } catch (const CException& error) {
            errors->addError(line, error.getErrMsg());
        }
    }
}

bool CmdConfigBuilder::checkRequired(const CmdBlock& block) {
    const std::pair<const char*, const std::string&> required[] = {
        {"name", block.name},
        {"description", block.description},
        {"type", block.type},
        {"destination", block.destination},
    };
    bool complete = true;
    for (const auto& key : required) {
        if (key.second.empty()) {
            errors->addError(block.line,
                             "\"" + std::string(key.first) + "\" is not defined for [Cmd].");
            complete = false;
        }
    }
    return complete;
}

bool CmdConfigBuilder::checkWords(const CmdBlock& block) {
    bool valid = true;
    if (findType(block.type) == nullptr) {
        errors->addError(block.line, "Invalid \"type\" for [Cmd]:" + block.type);
        valid = false;
    }
    if (block.destination != "MASTER" && block.destination != "SLAVE") {
        errors->addError(block.line, "Invalid \"destination\" for [Cmd].");
        valid = false;
    }
    return valid;
}

bool CmdConfigBuilder::checkCommandLines(const CmdBlock& block) {
    const bool has32 = !block.cmd32.empty();
    const bool has64 = !block.cmd64.empty();
    std::string clash;
    if (block.cmd.empty()) {
        if (has32 || has64) {
            return true;
        }
        errors->addError(block.line,
                         "None of \"cmd\", \"cmd32\" or \"cmd64\" is defined for [Cmd].");
        return false;
    }
    if (has32 && has64) {
        clash = "\"cmd64\", \"cmd32\"";
    } else if (has64) {
        clash = "\"cmd64\"";
    } else if (has32) {
        clash = "\"cmd32\"";
    } else {
        return true;
    }
    errors->addError(block.line,
                     clash + " and \"cmd\" can not be defined at the same time for [Cmd].");
    return false;
}

// Milliseconds. A value that converts to zero is accepted only when it is at most one character
// long.
bool CmdConfigBuilder::resolveTimeOut(int line, const std::string& value, unsigned int& timeOut) {
    // "12s" is 12, "x" is 0, "00" and "abc" are faults; docs/compatibility.md.
    const long long number = std::strtoll(value.c_str(), nullptr, 10);
    if (number < 0 || (number == 0 && value.size() > 1)) {
        errors->addError(line, "Invalid time out: " + value);
        return false;
    }
    // More than seven weeks are as good as what fits, as with the shell's own -t.
    timeOut = static_cast<unsigned int>(
        std::min<long long>(number, std::numeric_limits<unsigned int>::max()));
    return true;
}

std::list<std::unique_ptr<CCommandOption>> CmdConfigBuilder::resolveOptions(const CmdBlock& block) {
    std::list<std::unique_ptr<CCommandOption>> options;
    const std::string text = block.option + kOptionSeparator;
    constexpr std::string::size_type separatorLength = sizeof kOptionSeparator - 1;
    std::string::size_type begin = 0;
    for (std::string::size_type end = text.find(kOptionSeparator); end != std::string::npos;
         begin = end + separatorLength, end = text.find(kOptionSeparator, begin)) {
        std::string declaration = text.substr(begin, end - begin);
        CUtil::trim(declaration);
        if (declaration.empty()) {
            continue;
        }
        std::unique_ptr<CCommandOption> option = resolveOption(block.line, declaration);
        if (option) {
            options.push_back(std::move(option));
        }
    }
    return options;
}

// Null when the declaration is faulty.
std::unique_ptr<CCommandOption> CmdConfigBuilder::resolveOption(int line,
                                                                const std::string& declaration) {
    const std::list<std::string> parts = cmdnotation::splitOption(declaration);
    if (parts.size() != 4) {
        errors->addError(line, "Invalid format for a command option: " + declaration);
        return nullptr;
    }
    auto part = parts.begin();
    const std::string& shortName = *part++;
    const std::string& longName = *part++;
    const std::string& attributes = *part++;
    const std::string& description = *part;
    bool valid = true;
    if (shortName.empty() && longName.empty()) {
        errors->addError(line, "Invalid format! Short option name:\"" + shortName +
                                   "\" and long option name:\"" + longName +
                                   "\" can not both be empty.");
        valid = false;
    }
    if (attributes.size() != 2 || !isFlag(attributes[0]) || !isFlag(attributes[1])) {
        errors->addError(line, "Invalid option attributes:\"" + attributes + "\"");
        valid = false;
    }
    if (!valid) {
        return nullptr;
    }
    return std::make_unique<CCommandOption>(shortName, longName, attributes[0] - '0',
                                            attributes[1] - '0', description);
}
