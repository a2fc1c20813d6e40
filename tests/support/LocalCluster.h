#pragma once

#include <csignal>
#include <fstream>
#include <iterator>
#include <stdexcept>
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

    explicit LocalCluster(int nodes) {
        // Tests run side by side: each takes a subnet and a port by its process number, and the
        // next ones where somebody has them already.
        const int first = static_cast<int>(::getpid());
        std::string output;
        for (int attempt = 0; attempt < 20; ++attempt) {
            const int number = first + attempt * 37;
            output.clear();
            if (shell(script() + " start --nodes " + std::to_string(nodes) + " --dir " + root() +
                          " --build " KELSH_BINARY_DIR " --subnet 127." +
                          std::to_string(2 + number % 250) + " --port " +
                          std::to_string(20000 + number % 12000),
                      &output) == 0) {
                return;
            }
            shell("rm -rf " + root(), nullptr);
        }
        throw std::runtime_error("no local cluster: " + output);
    }
    LocalCluster(const LocalCluster&) = delete;
    LocalCluster& operator=(const LocalCluster&) = delete;
    ~LocalCluster() { shell(script() + " stop --dir " + root(), nullptr); }

    static std::string nodeName(int index) {
        std::string digits = std::to_string(index);
        digits.insert(0, 4 - digits.size(), '0');
        return "node_" + digits;
    }

    // KELSH_PATH of the shell, and KELNODE_PATH of one agent; no trailing "/".
    std::string shellPath() const { return root() + "/kelsh"; }
    std::string nodePath(int index) const { return root() + "/nodes/" + nodeName(index); }

    std::string shellFile(const std::string& name) const {
        std::ifstream file(shellPath() + "/" + name);
        return std::string(std::istreambuf_iterator<char>(file), {});
    }
    void writeShellFile(const std::string& name, const std::string& text) const {
        std::ofstream(shellPath() + "/" + name) << text;
    }

    // The listening process of that agent.
    pid_t agent(int index) const {
        std::ifstream file(nodePath(index) + "/pid");
        pid_t pid = 0;
        if (!(file >> pid) || pid <= 1) {
            throw std::runtime_error("no process number of agent " + std::to_string(index));
        }
        return pid;
    }
    void signalAgent(int index, int signal) const {
        if (::kill(agent(index), signal) != 0) {
            throw std::runtime_error("cannot signal agent " + std::to_string(index));
        }
    }

    // The line as it would be typed in a shell, for a process that the test starts itself.
    std::string kelshLine(const std::string& arguments) const {
        return "KELSH_PATH=" + shellPath() + " exec " KELSH_BINARY_DIR "/bin/kelsh " + arguments;
    }
    Run kelsh(const std::string& arguments) const {
        Run run;
        ChildProcess::Request request;
        request.commandLine = kelshLine(arguments);
        request.input = ChildProcess::Input::kNull;
        request.output = &run.output;
        request.errorOutput = &run.errors;
        run.status = ChildProcess::run(request).exitCode();
        return run;
    }

private:
    static std::string script() { return KELSH_SOURCE_DIR "/scripts/local-cluster"; }
    std::string root() const { return directory.file("cluster"); }

    static int shell(const std::string& line, std::string* output) {
        std::string dropped;
        ChildProcess::Request request;
        request.commandLine = line;
        request.input = ChildProcess::Input::kNull;
        request.output = output != nullptr ? output : &dropped;
        request.errorOutput = request.output;
        return ChildProcess::run(request).exitCode();
    }

    TempDir directory;
};
