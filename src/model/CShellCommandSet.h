#pragma once

#include <list>
#include <map>
#include <string>

#include "CShellCommand.h"
#include "KelshEnum.h"

class CNode;
class CResult;
class ConfigErrorCollector;
class SSLClient;

// One level of the command tree: its commands, its child sets, and the confirmation and time-out
// that its commands inherit. Also the base of the built-in sets, which override execute().
//
// Owns its child sets and its commands; the parent is not owned. Built by one thread; afterwards
// execute() and the look-ups may be called by many threads at once.
class CShellCommandSet {
public:
    CShellCommandSet(std::string setName, std::string text);
    CShellCommandSet(const CShellCommandSet&) = delete;
    CShellCommandSet& operator=(const CShellCommandSet&) = delete;
    // A set that is destroyed on its own takes itself out of its parent's list.
    virtual ~CShellCommandSet();

    // Runs a command of this set on a node, or, where node is null, on this machine with the
    // terminal's standard input. command is a name exactly as stored.
    //   timeOut  milliseconds for the command on the node, 0 for no limit; connecting may take a
    //            third of it, at most 3000. A command on this machine is not ended: its caller
    //            stops waiting.
    // Everything that goes wrong ends up in the result: run status 2 and the reason as run summary.
    virtual void execute(std::string command, CNode* node, CResult& result, unsigned timeOut);

    std::string getCommandSetName() const;
    std::string getDescription() const;
    void setDescription(std::string text);
    CShellCommandSet* getParentCommand() const;
    void setParentCommand(CShellCommandSet* set);
    bool hasParentCommandSet() const;

    // The list itself, in the order added. Change it with the operations below only: they keep the
    // pointers to set and parent right.
    std::list<CShellCommandSet*>& getChildCommands();
    const std::list<CShellCommandSet*>& getChildCommands() const;
    // The map itself, from name to command. The same holds.
    std::map<std::string, CShellCommand*>& getSupportedCommands();
    const std::map<std::string, CShellCommand*>& getSupportedCommands() const;

    // Milliseconds, the set's own value; 0 means not set.
    unsigned getTimeOut() const;
    void setTimeOut(unsigned milliseconds);

    void setCommandSetConfirmType(CONFIRM_TYPE_ENUM confirmation);
    void setCommandSetConfirmMessage(std::string message);
    // The type in force: for INHERITANCE the parent's, as long as there is a parent.
    CONFIRM_TYPE_ENUM getCommandSetConfirmType() const;
    // The question to ask, with a default for ONCE and EACH; "" when nothing is asked.
    std::string getCommandSetConfirmMessage() const;

    // Names are compared exactly.
    bool equal(std::string other) const;
    bool equal(const CShellCommandSet& other) const;
    bool operator==(const CShellCommandSet& other) const;

    // Takes ownership. Throws CException for a child that has a parent or would close a circle, and
    // CAlreadyExistException for a second child of one name; the caller then keeps the child.
    void addChildCommand(CShellCommandSet* child);
    // Return the child, or all children, to the caller, without a parent.
    void removeChildCommand(CShellCommandSet* child);
    void removeAllChildCommands();

    // Takes ownership. Throws CAlreadyExistException for a second command of one name; the caller
    // then keeps it.
    void addSupportedCommand(CShellCommand* cmd);
    // Returns the command to the caller, without a set.
    void removeSupportedCommand(std::string commandName);

    // By name, its white space made neat first.
    bool isSupported(std::string commandName) const;
    // Whether a command name of the other set is supported here; false for null.
    bool hasDuplicateSupportedCommand(const CShellCommandSet* other) const;
    // The first command, in byte order of the names, that accepts the line; null when none does.
    // The findings of the commands tried on the way stay in errors, and entries that were there
    // before keep commands with options from being accepted.
    CShellCommand* findPossibleSupportedCommand(std::string line,
                                                ConfigErrorCollector* errors) const;
    // True when the line is the command name, alone or with options behind it.
    bool matchCommand(std::string line, std::string commandName) const;

    // "" for the root "BASIC", the name for any other root, else parent's path + "/" + name.
    std::string getPath() const;

    // The help text of the set and of everything below it.
    std::string getUsage() const;

    // The settings for the text typed at this level: a command name, or a path, name and options.
    // Without such a command: NO, "", 0, and MASTER with a warning on standard output.
    CONFIRM_TYPE_ENUM getCommandConfirmType(std::string typed) const;
    std::string getCommandConfirmMessage(std::string typed) const;
    unsigned getCommandTimeOut(std::string typed) const;
    EXECUTE_DESTINATION getExecuteDestination(std::string typed) const;

    // Asks the node for its hardware platform: 0 for i386, 1 for x86_64, 2 for anything else and
    // for a null client. Throws CException when the node cannot be asked.
    int checkHardwarePlatformOnSlaveNode(SSLClient* client);

protected:
    // The command stored under exactly that name; null when there is none.
    CShellCommand* findStoredCommand(const std::string& commandName) const;
    // Runs the command's line, with options (may be empty) behind it after a blank, on the node or,
    // where node is null, on this machine. Never throws CException.
    void runCommand(const CShellCommand& cmd, const std::string& options, CNode* node,
                    CResult& result, unsigned timeOut);

private:
    CShellCommand* findTypedCommand(const std::string& typed) const;

    std::string name;
    CShellCommandSet* parent = nullptr;
    // The set whose child list holds this one; it outlives this one. parent, which anybody may set,
    // may be destroyed before.
    CShellCommandSet* owner = nullptr;
    CONFIRM_TYPE_ENUM confirmType = NO;
    std::string confirmMessage;
    unsigned timeOut = 0;
    std::string description;
    std::list<CShellCommandSet*> children;
    std::map<std::string, CShellCommand*> supportedCommands;
};
