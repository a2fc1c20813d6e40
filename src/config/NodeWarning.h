#pragma once

#include <string>

#include "ConfigError.h"

class CNode;

// A warning about a node of the node file whose agent was asked; the node may just be switched off.
// Readers of a collector's list recognise it by its type.
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
