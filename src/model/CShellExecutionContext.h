#pragma once

#include <list>
#include <map>
#include <memory>
#include <string>

class CCommandDispatcher;
class CNode;
class CNodeGroup;
class CShellCommand;
class CShellCommandSet;
class CVersionConfig;
class ConfigErrorCollector;

// The shell-wide state: the tree of command sets, the nodes and groups, the configuration file
// names, and the level the user has stepped to. Owns the root sets (which own their children), the
// nodes and the groups. Main thread only.
class CShellExecutionContext {
public:
    // Loads kelsh_version.cfg from the working directory or else from KELSH_PATH when that is set.
    // A failure is reported on standard output, unless another living context has reported it.
    CShellExecutionContext();
    // A context in which a set runs a single command of its own. It knows no version, reports
    // nothing, and may be used on a worker's thread.
    struct Temporary {};
    explicit CShellExecutionContext(Temporary);
    CShellExecutionContext(const CShellExecutionContext&) = delete;
    CShellExecutionContext& operator=(const CShellExecutionContext&) = delete;
    ~CShellExecutionContext();

    // The live containers.
    std::list<CShellCommandSet*>& getRootCommandSetList();
    std::map<std::string, CNode*>& getNodeMap();
    std::list<CNodeGroup*>& getNodeGroupList();

    // The set named "BASIC"; null before it is added and after clear().
    CShellCommandSet* getBasicCommandSet() const;

    std::string getHostName() const;
    void setHostName(std::string newHostName);
    std::string getNodeCfgFileName() const;
    void setNodeCfgFileName(std::string fileName);
    std::string getCmdCfgFileName() const;
    void setCmdCfgFileName(std::string fileName);
    std::string getSslCfgFileName() const;
    void setSslCfgFileName(std::string fileName);

    // Registers the set with the dispatcher and takes ownership, except of a set that has a parent.
    // A refusal by the dispatcher is written on standard output, and the set is kept.
    void addCommandSet(CShellCommandSet* set);
    // CCommandDispatcher::findExeCommand on the sets added here.
    CShellCommand* findExeCommand(std::string workingPath, std::string& typedLine,
                                  ConfigErrorCollector* errors);

    // The working level: the names from the root to the working set, empty at the root.
    std::list<std::string> getCWL() const;
    // "/tools/disk"; empty at the root.
    std::string cwlToString() const;
    // "tools/disk/"; empty at the root.
    std::string getPathToWorkingCommandSet() const;
    // All root sets at the root, else the one working set. Empty, with a message on standard
    // output, when the working level names a set that is not there.
    std::list<CShellCommandSet*> getWorkingCommandSet();

    // Throws CDoesNotExistException when the working level has no such set; it is then unchanged.
    void toLowerLevel(std::string name);
    // Nothing happens at the root.
    void toUpperLevel();
    void toRootLevel();

    // The text of a listing of the working level: its commands and the sets below it.
    std::string listWorkingCommandSet();
    // Help on the shell and all its sets, and on the working level alone.
    std::string getUsage();
    std::string getCWLUsage();

    std::string getVersionBuildString() const;
    // Writes the banner and the version line on standard output.
    void printDeclaration() const;

    // Deletes the sets, nodes and groups, and takes the sets out of the dispatcher. The working
    // level, the names and the version stay.
    void clear();

private:
    void loadVersion();
    std::string declaration() const;

    std::string hostName;
    std::string nodeCfgFileName = "node.cfg";
    std::string cmdCfgFileName = "cmd.cfg";
    std::string sslCfgFileName = "ssl_master.cfg";
    std::list<CShellCommandSet*> allCommandSets;   // in order of addition; not owned
    std::list<CShellCommandSet*> rootCommandSets;  // owned
    std::map<std::string, CNode*> nodeMap;         // owned
    std::list<CNodeGroup*> nodeGroups;             // owned
    std::list<std::string> cwl;
    std::unique_ptr<CCommandDispatcher> dispatcher;
    CShellCommandSet* basicCommandSet = nullptr;  // not owned
    std::shared_ptr<const CVersionConfig> versionConfig;
    bool versionMissing = false;
};
