#include "NodeConfigFile.h"

#include <cstdint>
#include <cstdlib>
#include <utility>

#include "CAlreadyExistException.h"
#include "CNodeGroup.h"
#include "CShellExecutionContext.h"
#include "CUtil.h"
#include "ConfigErrorCollector.h"
#include "ConfigLineReader.h"
#include "NodeWarning.h"

namespace {

// Null when one of the three separators is missing.
std::unique_ptr<CNode> parseNode(const std::string& text) {
    const std::string::size_type equals = text.find('=');
    if (equals == std::string::npos) {
        return nullptr;
    }
    const std::string::size_type comma = text.find(',', equals + 1);
    if (comma == std::string::npos) {
        return nullptr;
    }
    const std::string::size_type colon = text.find(':', comma + 1);
    if (colon == std::string::npos) {
        return nullptr;
    }
    std::string mac = text.substr(equals + 1, comma - equals - 1);
    CUtil::toUpper(mac);
    const auto port =
        static_cast<std::uint32_t>(std::strtol(text.c_str() + colon + 1, nullptr, 10));
    return std::make_unique<CNode>(text.substr(0, equals), std::move(mac),
                                   text.substr(comma + 1, colon - comma - 1), port);
}

CNodeGroup* findGroup(const std::list<CNodeGroup*>& groups, const std::string& name) {
    for (CNodeGroup* group : groups) {
        if (group->getName() == name) {
            return group;
        }
    }
    return nullptr;
}

}  // namespace

NodeConfigFile::NodeConfigFile(CShellExecutionContext& shellContext,
                               ConfigErrorCollector* collector, NodeAgentQuery agentQuery,
                               std::size_t mostAtOnce)
    : context(shellContext),
      errors(collector),
      query(std::move(agentQuery)),
      mostQueries(mostAtOnce) {}

void NodeConfigFile::read(FILE* stream) {
    enum class Section { none, node, group } section = Section::none;
    ConfigLineReader reader(stream);
    std::string text;
    while (reader.next(text)) {
        if (ConfigLineReader::isSkipped(text)) {
            continue;
        }
        if (text == "[node]") {
            section = Section::node;
        } else if (text == "[group]") {
            section = Section::group;
        } else if (section == Section::none) {
            fault(reader.lineNumber(), "Invalid line position: " + text);
        } else if (section == Section::node) {
            readNode(reader.lineNumber(), text);
        } else {
            readGroup(reader.lineNumber(), text);
        }
    }
    report();
}

void NodeConfigFile::fault(int line, std::string message) {
    findings.push_back({line, std::move(message), nullptr});
}

void NodeConfigFile::readNode(int line, const std::string& text) {
    std::unique_ptr<CNode> node = parseNode(text);
    if (!node) {
        fault(line, "Invalid format: " + text);
        return;
    }
    findings.push_back({line, std::string(), node.get()});
    const std::string name = node->getName();
    if (context.getNodeMap().count(name) != 0) {
        fault(line, "Error! Node name \"" + name + "\" has been used.");
        refused.push_back(std::move(node));
        return;
    }
    context.getNodeMap()[name] = node.get();
    static_cast<void>(node.release());  // the map owns it
}

void NodeConfigFile::readGroup(int line, const std::string& text) {
    std::string name;
    std::string members;
    if (!ConfigLineReader::splitSetting(text, name, members)) {
        fault(line, "Invalid format: " + text);
        return;
    }
    if (context.getNodeMap().count(name) != 0) {
        fault(line, "Group name \"" + name + "\" is ambiguous. There is already a node named \"" +
                        name + "\" defined.");
        return;
    }
    auto group = std::make_unique<CNodeGroup>(name);
    bool complete = true;
    members += ',';
    std::string::size_type begin = 0;
    for (std::string::size_type end = members.find(','); end != std::string::npos;
         begin = end + 1, end = members.find(',', begin)) {
        if (end > begin) {
            complete = addMember(line, *group, members.substr(begin, end - begin)) && complete;
        }
    }
    if (complete) {
        context.getNodeGroupList().push_back(group.get());
        static_cast<void>(group.release());  // the list owns it
    }
}

// False when the member is not defined. A member named twice is recorded and stays in once.
bool NodeConfigFile::addMember(int line, CNodeGroup& group, const std::string& member) {
    try {
        const auto node = context.getNodeMap().find(member);
        if (node != context.getNodeMap().end()) {
            group.addNode(node->second);
            return true;
        }
        CNodeGroup* inner = findGroup(context.getNodeGroupList(), member);
        if (inner != nullptr) {
            group.addGroup(inner);
            return true;
        }
    } catch (const CAlreadyExistException& error) {
        fault(line, error.getErrMsg());
        return true;
    }
    fault(line, "\"" + member + "\" is not defined for group \"" + group.getName() + "\".");
    return false;
}

void NodeConfigFile::report() {
    std::vector<const CNode*> nodes;
    for (const Finding& finding : findings) {
        if (finding.node != nullptr) {
            nodes.push_back(finding.node);
        }
    }
    const std::vector<NodeAgentAnswer> answers = askNodeAgents(nodes, query, mostQueries);
    auto answer = answers.begin();
    for (const Finding& finding : findings) {
        if (finding.node == nullptr) {
            errors->addError(finding.line, finding.message);
        } else {
            reportAnswer(finding, *answer++);
        }
    }
    findings.clear();
    refused.clear();
}

void NodeConfigFile::reportAnswer(const Finding& finding, const NodeAgentAnswer& answer) {
    const CNode& node = *finding.node;
    if (!answer.connected) {
        errors->addError(NodeWarning::unreachable(finding.line, node));
    } else if (!answer.mac.empty() && answer.mac != node.getMac()) {
        errors->addError(NodeWarning::otherMachine(finding.line, node, answer.mac));
    }
}
