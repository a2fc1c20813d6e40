#pragma once

#include <string>

#include "CommandTable.h"

class CNode;

// Finds the row that the line names and runs it on the node, after the connection is open, the
// node's install directory is known and prepare, if any, has had its say. A line that names no row
// leaves the result untouched. Whatever is thrown as CException becomes run status and summary.
void executeOnNode(CShellCommandSet& set, const CommandTable& table, const std::string& commandLine,
                   CNode* node, CResult& result, unsigned int timeOut,
                   void (*prepare)(CShellCommandSet& set, CNodeSession& session) = nullptr);
