#pragma once

#include <list>
#include <memory>
#include <string>

class CCommandOption;
class CShellCommand;
class CShellCommandSet;
class CShellExecutionContext;
class ConfigErrorCollector;
struct CmdBlock;
struct CmdSetBlock;

// The second pass over a command file: checks each block and adds command sets and commands to the
// context's tree. Every fault is recorded at the line of its block, also those of commands whose
// set is refused. A faulty set is refused with its commands, a faulty command is left out of its
// set, a faulty option out of its command. A set with a faulty time-out is kept without one. Main
// thread.
class CmdConfigBuilder {
public:
    // Neither is owned; both must outlive the object.
    CmdConfigBuilder(CShellExecutionContext& shellContext, ConfigErrorCollector* collector);

    // Parents must be built before their children.
    void build(const CmdSetBlock& block);

private:
    std::unique_ptr<CShellCommandSet> createSet(const CmdSetBlock& block,
                                                CShellCommandSet*& parent);
    void attach(int line, std::unique_ptr<CShellCommandSet> set, CShellCommandSet* parent);
    void buildCommand(const CmdBlock& block, CShellCommandSet& set);
    void addOptions(int line, std::list<std::unique_ptr<CCommandOption>> options,
                    CShellCommand& command);
    bool checkRequired(const CmdBlock& block);
    bool checkWords(const CmdBlock& block);
    bool checkCommandLines(const CmdBlock& block);
    bool resolveTimeOut(int line, const std::string& value, unsigned int& timeOut);
    std::list<std::unique_ptr<CCommandOption>> resolveOptions(const CmdBlock& block);
    std::unique_ptr<CCommandOption> resolveOption(int line, const std::string& declaration);

    CShellExecutionContext& context;
    ConfigErrorCollector* errors;
};
