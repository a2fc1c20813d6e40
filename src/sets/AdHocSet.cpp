#include "AdHocSet.h"

#include <memory>
#include <utility>

#include "CException.h"
#include "CResult.h"
#include "CShellCommand.h"
#include "NodeAccess.h"
#include "NodeResult.h"
#include "SSLClient.h"

AdHocSet::AdHocSet() : CShellCommandSet("run", "Lines for the shell of the nodes.") {
    addSupportedCommand(
        new CShellCommand(kCommandName, "Run the line behind -- on nodes.", "", SCRIPT_OPT, SLAVE));
}

CShellCommand& AdHocSet::command() const {
    return *getSupportedCommands().at(kCommandName);
}

void AdHocSet::execute(std::string line, CNode* node, CResult& result, unsigned timeOutMs) {
    try {
        if (node == nullptr) {
            throw CException("The command needs a node.");
        }
        // A line that begins with a bracket could be one of the client's words for files; to the
        // shell of the node a blank in front is nothing.
        const std::string sent = !line.empty() && line.front() == '[' ? " " + line : line;
        nodeaccess::connect(*node, timeOutMs)->execute(sent, timeOutMs, &result);
    } catch (const CException& failure) {
        noderesult::fail(result, failure);
    }
}
