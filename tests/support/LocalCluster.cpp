#include "LocalCluster.h"

#include <csignal>
#include <stdexcept>

LocalCluster::LocalCluster(int nodes) {
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

std::string LocalCluster::nodeName(int index) {
    std::string digits = std::to_string(index);
    digits.insert(0, 4 - digits.size(), '0');
    return "node_" + digits;
}

std::string LocalCluster::shellFile(const std::string& name) const {
    std::ifstream file(shellPath() + "/" + name);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

void LocalCluster::writeShellFile(const std::string& name, const std::string& text) const {
    std::ofstream(shellPath() + "/" + name) << text;
}

pid_t LocalCluster::agent(int index) const {
    std::ifstream file(nodePath(index) + "/pid");
    pid_t pid = 0;
    if (!(file >> pid) || pid <= 1) {
        throw std::runtime_error("no process number of agent " + std::to_string(index));
    }
    return pid;
}

void LocalCluster::signalAgent(int index, int signal) const {
    if (::kill(agent(index), signal) != 0) {
        throw std::runtime_error("cannot signal agent " + std::to_string(index));
    }
}

std::string LocalCluster::kelshLine(const std::string& arguments) const {
    return "KELSH_PATH=" + shellPath() + " exec " KELSH_BINARY_DIR "/bin/kelsh " + arguments;
}

LocalCluster::Run LocalCluster::kelsh(const std::string& arguments) const {
    Run run;
    ChildProcess::Request request;
    request.commandLine = kelshLine(arguments);
    request.input = ChildProcess::Input::kNull;
    request.output = &run.output;
    request.errorOutput = &run.errors;
    run.status = ChildProcess::run(request).exitCode();
    return run;
}

int LocalCluster::shell(const std::string& line, std::string* output) {
    std::string dropped;
    ChildProcess::Request request;
    request.commandLine = line;
    request.input = ChildProcess::Input::kNull;
    request.output = output != nullptr ? output : &dropped;
    request.errorOutput = request.output;
    return ChildProcess::run(request).exitCode();
}
