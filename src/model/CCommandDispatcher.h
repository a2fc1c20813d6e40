#pragma once

#include <map>
#include <string>

class CShellCommand;
class CShellCommandSet;
class ConfigErrorCollector;

// Finds the command that a typed line calls at some level of the command tree. Keys are full paths:
// "/a/b/c" for command c of a set with path "/a/b", the bare name for a command of the root
// "BASIC".
//
// Does not own the sets: unregister a set before it is destroyed. Main thread only.
class CCommandDispatcher {
public:
    CCommandDispatcher();
    CCommandDispatcher(const CCommandDispatcher&) = delete;
    CCommandDispatcher& operator=(const CCommandDispatcher&) = delete;
    virtual ~CCommandDispatcher();

    // Adds every command of the set, or none: throws CAlreadyExistException when one has the name
    // of a command of the root "BASIC", or when its key belongs to another set. Two other sets may
    // have a name in common.
    void registerCommand(CShellCommandSet* set);
    // Removes every entry of the set; returns how many there were.
    int unregisterCommand(CShellCommandSet* set);

    // The line without its leading path, trimmed: "reset -f /tmp/x" for "a/b/reset -f /tmp/x". A
    // slash behind the first "-" belongs to an option value and stays.
    static std::string getCommandAndOptionPart(std::string line);
    // The same without the options: "reset".
    static std::string getCommandPart(std::string line);

    // The command that the typed line calls at the working level, or null.
    //   workingPath  names of the sets from the root down, with "/" between, "" at the root
    //   typedLine    may begin with a path: from the working level, or from the root when it begins
    //                with "/". Overwritten with the command and its options, without any path, when
    //                a command is found; unchanged otherwise.
    //   errors       gets the findings about the options of the commands tried; null drops them
    CShellCommand* findExeCommand(std::string workingPath, std::string& typedLine,
                                  ConfigErrorCollector* errors);

private:
    // The set whose command the typed line names in full, path included, or else the root "BASIC"
    // for one of its commands; null when there is none. text becomes the command and its options.
    CShellCommandSet* findSet(const std::string& prefix, const std::string& typed,
                              std::string& text) const;
    // For lines whose command words are no key, since the name itself holds words like options:
    // asks the sets whose keys begin the whole text. Stops at the first finding.
    CShellCommand* findByKeyInFront(const std::string& whole, std::string& text,
                                    ConfigErrorCollector* errors) const;

    std::map<std::string, CShellCommandSet*> commands;
};
