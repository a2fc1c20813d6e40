#pragma once

#include <string>

#include "ConfigError.h"

class CNode;

// A finding about a node of the node file, made by asking its agent; a warning, since a node may be
// off. Who reads a collector's list tells it from the others by its type.
class NodeWarning : public ConfigError {
public:
    // The agent did not answer.
    static NodeWarning* unreachable(int line, const CNode& node);
    // The agent has another hardware address than the file says.
    static NodeWarning* otherMachine(int line, const CNode& node, const std::string& itsMac);

    const std::string& getNodeName() const { return nodeName; }
    bool isUnreachable() const { return silent; }

private:
    NodeWarning(int lineNumber, std::string message, std::string name, bool unanswered);

    std::string nodeName;
    bool silent;
};
