#pragma once

#include <map>
#include <string>

class CNode;
class CNodeGroup;

// The request of one command: text, target nodes and time-out. Used by one thread. The nodes belong
// to the shell execution context and must outlive it.
class CCommandExecutionContext {
public:
    CCommandExecutionContext();
    ~CCommandExecutionContext();

    // The command line without the target and time-out options and their values, trimmed.
    std::string getCommandRequest() const;
    void setCommandRequest(std::string request);

    // The target nodes by name. The nodes are not owned.
    std::map<std::string, CNode*>& getNodeMap();
    const std::map<std::string, CNode*>& getNodeMap() const;
    // Adds one node; a node of that name already there stays. Null is ignored.
    void addNode(CNode* node);
    // Adds every node of the group and of the groups in it, to any depth. Null is ignored; groups
    // that contain one another are walked once.
    void addNodesAndGroups(CNodeGroup* group);

    // Milliseconds; 0 means not given.
    unsigned int getTimeOut() const;
    void setTimeOut(unsigned int milliseconds);
    // What applies when neither the request nor the command nor its set says otherwise.
    unsigned int getDefaultTimeOut() const;

    // True once the engine has run the command to its report.
    bool isExecuted() const;
    void setExecuted(bool value);

    // True once the request is known to name a command.
    bool isValidCommand() const;
    void setValidCommand(bool value);

    // Empties everything, as after construction.
    void reset();

private:
    std::string commandRequest;
    std::map<std::string, CNode*> nodeMap;
    unsigned int timeOut = 0;
    bool executed = false;
    bool validCommand = false;
};
