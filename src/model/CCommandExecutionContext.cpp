#include "CCommandExecutionContext.h"

#include <list>
#include <set>
#include <utility>

#include "CNode.h"
#include "CNodeGroup.h"

namespace {

constexpr unsigned int kDefaultTimeOutMs = 30000;

}  // namespace

CCommandExecutionContext::CCommandExecutionContext() = default;

CCommandExecutionContext::~CCommandExecutionContext() = default;

std::string CCommandExecutionContext::getCommandRequest() const {
    return commandRequest;
}

void CCommandExecutionContext::setCommandRequest(std::string request) {
    commandRequest = std::move(request);
}

std::map<std::string, CNode*>& CCommandExecutionContext::getNodeMap() {
    return nodeMap;
}

const std::map<std::string, CNode*>& CCommandExecutionContext::getNodeMap() const {
    return nodeMap;
}

void CCommandExecutionContext::addNode(CNode* node) {
    if (node != nullptr) {
        nodeMap.emplace(node->getName(), node);
    }
}

void CCommandExecutionContext::addNodesAndGroups(CNodeGroup* group) {
    if (group == nullptr) {
        return;
    }
    std::set<const CNodeGroup*> known{group};
    std::list<CNodeGroup*> waiting{group};
    while (!waiting.empty()) {
        CNodeGroup* current = waiting.front();
        waiting.pop_front();
        for (CNode* node : current->getNodes()) {
            addNode(node);
        }
        for (CNodeGroup* member : current->getNodeGroups()) {
            if (member != nullptr && known.insert(member).second) {
                waiting.push_back(member);
            }
        }
    }
}

unsigned int CCommandExecutionContext::getTimeOut() const {
    return timeOut;
}

void CCommandExecutionContext::setTimeOut(unsigned int milliseconds) {
    timeOut = milliseconds;
}

unsigned int CCommandExecutionContext::getDefaultTimeOut() const {
    return kDefaultTimeOutMs;
}

bool CCommandExecutionContext::isExecuted() const {
    return executed;
}

void CCommandExecutionContext::setExecuted(bool value) {
    executed = value;
}

bool CCommandExecutionContext::isValidCommand() const {
    return validCommand;
}

void CCommandExecutionContext::setValidCommand(bool value) {
    validCommand = value;
}

void CCommandExecutionContext::reset() {
    *this = CCommandExecutionContext();
}
