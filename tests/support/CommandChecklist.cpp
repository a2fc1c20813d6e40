#include "CommandChecklist.h"

void expectOptions(const CShellCommand& command, const std::vector<ExpectedOption>& expected) {
    const std::list<CCommandOption*> options = command.getOptions();
    ASSERT_EQ(expected.size(), options.size());
    auto option = options.begin();
    for (const ExpectedOption& row : expected) {
        EXPECT_EQ(row.shortName, (*option)->getShortOptName());
        EXPECT_EQ(row.longName, (*option)->getLongOptName());
        EXPECT_EQ(row.compulsory, (*option)->getIsCompulsory()) << row.shortName;
        EXPECT_EQ(row.hasValue, (*option)->getHasOptValue()) << row.shortName;
        EXPECT_EQ(row.description, (*option)->getDescription());
        ++option;
    }
}

void expectCommands(CShellCommandSet& set, const std::vector<ExpectedCommand>& expected) {
    EXPECT_EQ(set.getSupportedCommands().size(), expected.size());
    for (const ExpectedCommand& row : expected) {
        SCOPED_TRACE(row.name);
        const auto found = set.getSupportedCommands().find(row.name);
        ASSERT_NE(found, set.getSupportedCommands().end());
        const CShellCommand& command = *found->second;
        EXPECT_EQ(row.name, command.getName());
        EXPECT_EQ(row.description, command.getDescription());
        EXPECT_EQ("", command.getCommand());
        EXPECT_FALSE(command.needToCheck32Or64BitCommand());
        EXPECT_EQ(row.type, command.getType());
        EXPECT_EQ(row.destination, command.getDestination());
        EXPECT_EQ(&set, command.getCommandSet());
        EXPECT_EQ(row.timeOutMs, command.getTimeOut());
        EXPECT_EQ(row.confirmation, command.getCommandConfirmType());
        EXPECT_EQ(row.confirmMessage, command.getCommandConfirmMessage());
        EXPECT_EQ(row.examples, command.getExamples());
        expectOptions(command, row.options);
    }
}
