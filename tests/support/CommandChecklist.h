#pragma once

#include <list>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "CCommandOption.h"
#include "CShellCommand.h"
#include "CShellCommandSet.h"
#include "KelshEnum.h"

// What a built-in set promises, row by row, and the comparison with what its constructor made.
struct ExpectedOption {
    std::string shortName;
    std::string longName;
    bool compulsory;
    bool hasValue;
    std::string description;
};

struct ExpectedCommand {
    std::string name;
    std::string description;
    COMMAND_TYPE type;
    EXECUTE_DESTINATION destination;
    std::vector<ExpectedOption> options;
    unsigned int timeOutMs;
    CONFIRM_TYPE_ENUM confirmation;
    std::string confirmMessage;
    std::list<std::string> examples;
};

void expectOptions(const CShellCommand& command, const std::vector<ExpectedOption>& expected);

// The set holds exactly these commands, each as described.
void expectCommands(CShellCommandSet& set, const std::vector<ExpectedCommand>& expected);
