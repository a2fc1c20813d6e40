#pragma once

#include <memory>
#include <string>
#include <vector>

#include "FakeNodeAgent.h"
#include "TempDir.h"
#include "TestPki.h"

// The real kelsh, run on a terminal against nodes that mean it no good.

// Everything the shell touches, in one directory.
class Sandbox {
public:
    Sandbox();
    std::string path(const std::string& name) const { return directory.path() + "/" + name; }
    void write(const std::string& name, const std::string& content) const;
    std::vector<std::string> list(const std::string& name) const;

private:
    TempDir directory;
};

// Makes them the nodes node_00, node_01 ... of the shell's configuration, and the group "all"; "lab
// ask" asks each to run a command.
void writeConfiguration(const Sandbox& sandbox, const TestPki::Identity& master,
                        const std::vector<std::unique_ptr<FakeNodeAgent>>& agents);

struct Shown {
    std::string bytes;
    long peakKiB = 0;
    long lastedMs = 0;
    bool ended = false;
};

// Runs the real kelsh on a terminal that passes every byte as it is. Questions are answered with
// yes, and where it prompts for a command it is told to quit. It is killed after a minute.
Shown runShell(const Sandbox& sandbox, const std::string& arguments);
