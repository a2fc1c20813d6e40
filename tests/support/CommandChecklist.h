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

inline void expectOptions(const CShellCommand& command,
                          const std::vector<ExpectedOption>& expected) {
    const std::list<CCommandOption*> options = command.getOptions();
    ASSERT_EQ(options.size(), expected.size());
    auto option = options.begin();
    for (const ExpectedOption& row : expected) {
        EXPECT_EQ((*option)->getShortOptName(), row.shortName);
        EXPECT_EQ((*option)->getLongOptName(), row.longName);
        EXPECT_EQ((*option)->getIsCompulsory(), row.compulsory) << row.shortName;
        EXPECT_EQ((*option)->getHasOptValue(), row.hasValue) << row.shortName;
        EXPECT_EQ((*option)->getDescription(), row.description);
        ++option;
    }
}

// The set holds exactly these commands, each as described.
inline void expectCommands(CShellCommandSet& set, const std::vector<ExpectedCommand>& expected) {
    EXPECT_EQ(set.getSupportedCommands().size(), expected.size());
    for (const ExpectedCommand& row : expected) {
        SCOPED_TRACE(row.name);
        const auto found = set.getSupportedCommands().find(row.name);
        ASSERT_NE(found, set.getSupportedCommands().end());
        const CShellCommand& command = *found->second;
        EXPECT_EQ(command.getName(), row.name);
        EXPECT_EQ(command.getDescription(), row.description);
        EXPECT_EQ(command.getCommand(), "");
        EXPECT_FALSE(command.needToCheck32Or64BitCommand());
        EXPECT_EQ(command.getType(), row.type);
        EXPECT_EQ(command.getDestination(), row.destination);
        EXPECT_EQ(command.getCommandSet(), &set);
        EXPECT_EQ(command.getTimeOut(), row.timeOutMs);
        EXPECT_EQ(command.getCommandConfirmType(), row.confirmation);
        EXPECT_EQ(command.getCommandConfirmMessage(), row.confirmMessage);
        EXPECT_EQ(command.getExamples(), row.examples);
        expectOptions(command, row.options);
    }
}
