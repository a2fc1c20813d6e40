#pragma once

#include "NodeNames.h"

class CNodeGroup;
class CShellExecutionContext;

// The nodes and groups of node.cfg, as they stand in the context. The context is not owned and must
// outlive the object; nobody may change it meanwhile.
class ContextNodeNames : public NodeNames {
public:
    explicit ContextNodeNames(CShellExecutionContext& shellContext) : context(shellContext) {}

    bool hasNode(const std::string& name) const override;
    // By name.
    std::vector<std::string> allNodes() const override;
    bool hasGroup(const std::string& name) const override;
    std::vector<std::string> nodesOf(const std::string& group) const override;

private:
    const CNodeGroup* findGroup(const std::string& name) const;

    CShellExecutionContext& context;
};
