#pragma once

#include <list>
#include <string>

class ConfigErrorCollector;

// Stores an option word with its dashes: one with two into *longName, one with one into *shortName.
// Any other word changes nothing.
void checkForShortAndLongOption(std::string* shortName, std::string* longName, std::string word);

// One line split into a command and its option words; and, built from a synopsis such as
// "reset [-a|--all] {-n|--node}", a checker of typed lines. An option in square brackets stands
// alone, one in braces is followed by its value. A value type.
//
// The shell itself checks lines with CShellCommand::validateCommand; this is for sets outside this
// tree, docs/compatibility.md.
class CmdStrWithOption {
public:
    explicit CmdStrWithOption(std::string line);
    CmdStrWithOption(const CmdStrWithOption&) = default;
    CmdStrWithOption& operator=(const CmdStrWithOption&) = default;
    virtual ~CmdStrWithOption();

    std::string getCommand() const;
    std::string getOptionAndValue() const;
    // The list itself.
    std::list<std::string>& getOptionList();
    const std::list<std::string>& getOptionList() const;

    // True for a word in braces, false for every other.
    bool hasValueOptionFormat(std::string word) const;
    // The names, with their dashes, in a bracketed synopsis word; a word without brackets changes
    // nothing.
    void checkShortLongOptionFormat(std::string* shortName, std::string* longName,
                                    std::string word) const;
    // Whether the typed line is a complete and correct use of this synopsis. The findings go into
    // errors (line 0, level 2); entries that were there before make the answer false.
    // Null drops the findings.
    bool isExecutableCommand2(std::string typedLine, ConfigErrorCollector* errors) const;

private:
    std::string command;
    std::string optionAndValue;
    std::list<std::string> optionList;
    std::string wholeLine;
};
