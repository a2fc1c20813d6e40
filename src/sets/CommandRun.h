#pragma once

#include <string>

#include "CommandTable.h"

class CNode;

// Finds the row that the line names and runs it on the node. Before that it opens the connection,
// finds the node's install directory, and calls prepare, if there is one. A line that names no row
// leaves the result untouched. A CException becomes run status and summary.
void executeOnNode(CShellCommandSet& set, const CommandTable& table, const std::string& commandLine,
                   CNode* node, CResult& result, unsigned int timeOut,
                   void (*prepare)(CShellCommandSet& set, CNodeSession& session) = nullptr);
