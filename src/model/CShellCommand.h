#pragma once

#include <list>
#include <string>

#include "CCommandOption.h"
#include "KelshEnum.h"

class CShellCommandSet;
class ConfigErrorCollector;

// A command of a command set: what is run, where, with which options, for how long, and whether the
// user must confirm it. Built by one thread; any number of threads may read it afterwards.
//
// Owns its options. Does not own its set; the set keeps that pointer right.
class CShellCommand {
public:
    // A command with lines of its own for 32-bit and 64-bit nodes. White space in the name, the
    // description and the lines is made neat (CUtil::makeNeatString).
    CShellCommand(std::string commandName, std::string text, std::string line32, std::string line64,
                  COMMAND_TYPE commandType, EXECUTE_DESTINATION target);
    // A command with one line for every node.
    CShellCommand(std::string commandName, std::string text, std::string line,
                  COMMAND_TYPE commandType, EXECUTE_DESTINATION target);
    CShellCommand(const CShellCommand&) = delete;
    CShellCommand& operator=(const CShellCommand&) = delete;
    virtual ~CShellCommand();

    std::string getName() const;
    std::string getDescription() const;
    std::string getCommand() const;
    std::string get32Command() const;
    std::string get64Command() const;
    COMMAND_TYPE getType() const;
    EXECUTE_DESTINATION getDestination() const;

    // Null while the command belongs to no set.
    CShellCommandSet* getCommandSet() const;
    void setCommandSet(CShellCommandSet* set);

    // True when the node's hardware platform decides which line is run.
    bool needToCheck32Or64BitCommand() const;

    // Milliseconds; 0, here and in the set, means not set.
    void setTimeOut(unsigned milliseconds);
    // The command's own time-out, else its set's.
    unsigned getTimeOut() const;

    void setCommandConfirmType(CONFIRM_TYPE_ENUM confirmation);
    void setCommandConfirmMessage(std::string message);
    // The type in force: for INHERITANCE the set's, as long as there is a set.
    CONFIRM_TYPE_ENUM getCommandConfirmType() const;
    // The question to ask, with a default for ONCE and EACH; "" when nothing is asked.
    std::string getCommandConfirmMessage() const;

    // Takes ownership. Throws CAlreadyExistException when an option of the same short or long name
    // is there; the caller then keeps the new one.
    void addOption(CCommandOption* option);
    // Return one or all options to the caller, who deletes them.
    void removeOption(CCommandOption* option);
    void removeOptions();
    // A copy of the list, in the order added; the options still belong to the command.
    std::list<CCommandOption*> getOptions() const;
    // By short or long name, without dashes; null when there is none.
    CCommandOption* getCommandOption(std::string name) const;
    // What was typed behind that option; "" when there is no such option.
    std::string getCommandOptionValue(std::string optionName, std::string line) const;

    // Throws CAlreadyExistException for an example that is there already.
    void addExample(std::string example);
    void setExamples(std::list<std::string> list);
    std::list<std::string> getExamples() const;

    // Names are compared exactly.
    bool equal(std::string other) const;
    bool equal(const CShellCommand& other) const;
    bool operator==(const CShellCommand& other) const;

    // Whether the line, already free of the set's path and of the shell's own target options, is a
    // correct use of this command. Findings about options are added to errors; a command with
    // options is refused while errors holds anything at all, findings of other commands included.
    // Null drops the findings.
    bool validateCommand(std::string line, ConfigErrorCollector* errors) const;

private:
    bool acceptsOptions() const;

    std::string name;
    std::string description;
    std::string command;
    std::string command32;
    std::string command64;
    COMMAND_TYPE type;
    EXECUTE_DESTINATION destination;
    CONFIRM_TYPE_ENUM confirmType = NO;
    std::string confirmMessage;
    std::list<CCommandOption*> options;
    std::list<std::string> examples;
    unsigned timeOut = 0;
    CShellCommandSet* commandSet = nullptr;
};
