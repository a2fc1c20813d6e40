#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "CNode.h"
#include "NodeAgentQuery.h"

class CShellExecutionContext;
class ConfigErrorCollector;

// Reads a node file into the context: nodes first come, first kept; groups of nodes and of groups
// that stand above them. The agents of all nodes are asked together after the last line is read,
// but their findings are recorded between the others in the order of the file, as if each had been
// asked when its line was read. One object per reading; main thread.
class NodeConfigFile {
public:
    // Neither of the references is owned; both must outlive the object.
    //   mostAtOnce  so many agents are asked at the same time at most
    NodeConfigFile(CShellExecutionContext& shellContext, ConfigErrorCollector* collector,
                   NodeAgentQuery agentQuery = askNodeAgent,
                   std::size_t mostAtOnce = kMaxAgentQueries);

    void read(FILE* stream);

private:
    // A recorded fault, or the place for what a node's agent will answer.
    struct Finding {
        int line;
        std::string message;
        const CNode* node;
    };

    void fault(int line, std::string message);
    void readNode(int line, const std::string& text);
    void readGroup(int line, const std::string& text);
    bool addMember(int line, class CNodeGroup& group, const std::string& member);
    void report();
    void reportAnswer(const Finding& finding, const NodeAgentAnswer& answer);

    CShellExecutionContext& context;
    ConfigErrorCollector* errors;
    NodeAgentQuery query;
    std::size_t mostQueries;
    std::vector<Finding> findings;
    // Refused nodes. Their agents are asked all the same.
    std::vector<std::unique_ptr<CNode>> refused;
};
