#pragma once

#include <optional>
#include <string>

#include "CShellCommandSet.h"

class CShellExecutionContext;

// The "MASTER" commands read the context; nobody may change it meanwhile. The two file commands do
// not use it and may run on any number of workers at once.
class CShellCommandSet_Basic : public CShellCommandSet {
public:
    // The context is not owned and must outlive the set.
    explicit CShellCommandSet_Basic(CShellExecutionContext* shellContext);

    // Never throws CException: a failed connection is run status 2 and its message. The node is
    // consulted by the two file commands only.
    void execute(std::string commandLine, CNode* node, CResult& result,
                 unsigned int timeOutMs) override;

private:
    void copyFile(const std::string& word, const std::string& path, CNode* node, CResult& result,
                  unsigned int timeOutMs);
    // What a command of the master shows; none for one that shows nothing here.
    std::optional<std::string> textOf(const std::string& word);
    std::string listNodes() const;
    std::string listGroups() const;

    CShellExecutionContext* context;
};
