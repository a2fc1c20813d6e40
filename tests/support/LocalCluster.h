#pragma once

#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>

#include "ChildProcess.h"
#include "TempDir.h"
#include "TestPaths.h"

// Real kelnode agents on loopback addresses of the test's own, made by scripts/local-cluster, and
// the real kelsh set up to reach them. The agents end with the object.
class LocalCluster {
public:
    struct Run {
        int status = -1;
        std::string output;  // standard output
        std::string errors;  // standard error
    };

    explicit LocalCluster(int nodes);
    LocalCluster(const LocalCluster&) = delete;
    LocalCluster& operator=(const LocalCluster&) = delete;
    ~LocalCluster() { shell(script() + " stop --dir " + root(), nullptr); }

    static std::string nodeName(int index);

    // KELSH_PATH of the shell, and KELNODE_PATH of one agent; no trailing "/".
    std::string shellPath() const { return root() + "/kelsh"; }
    std::string nodePath(int index) const { return root() + "/nodes/" + nodeName(index); }

    std::string shellFile(const std::string& name) const;
    void writeShellFile(const std::string& name, const std::string& text) const;

    // The listening process of that agent.
    pid_t agent(int index) const;
    void signalAgent(int index, int signal) const;

    // The line as it would be typed in a shell, for a process that the test starts itself.
    std::string kelshLine(const std::string& arguments) const;
    Run kelsh(const std::string& arguments) const;

private:
    static std::string script() { return KELSH_SOURCE_DIR "/scripts/local-cluster"; }
    std::string root() const { return directory.file("cluster"); }

    static int shell(const std::string& line, std::string* output);

    TempDir directory;
};
