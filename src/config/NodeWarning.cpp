#include "NodeWarning.h"

#include <utility>

#include "CNode.h"

NodeWarning::NodeWarning(int lineNumber, std::string message, std::string name, bool unanswered)
    : ConfigError(lineNumber, CONFIG_WARNING, std::move(message)),
      nodeName(std::move(name)),
      silent(unanswered) {}

NodeWarning* NodeWarning::unreachable(int line, const CNode& node) {
    return new NodeWarning(line,
                           "Can not connect to " + node.getName() + ". (" + node.getIp() + ":" +
                               std::to_string(node.getPort()) + ")",
                           node.getName(), true);
}

NodeWarning* NodeWarning::otherMachine(int line, const CNode& node, const std::string& itsMac) {
    return new NodeWarning(line,
                           node.getName() + ": IP(" + node.getIp() + ") and MAC(" + node.getMac() +
                               " != " + itsMac + ") are not matched!",
                           node.getName(), false);
}
