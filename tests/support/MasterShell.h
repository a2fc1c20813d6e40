#pragma once

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

#include "LocalAgent.h"
#include "TempDir.h"
#include "TestPaths.h"
#include "UniqueFd.h"
#include "WaitFor.h"

// The real kelsh in a KELSH_PATH of its own, set up for one agent, which it knows as "node". One
// program at a time; one that still runs is killed with the object.
class MasterShell {
public:
    explicit MasterShell(const LocalAgent& agent);
    MasterShell(const MasterShell&) = delete;
    MasterShell& operator=(const MasterShell&) = delete;
    ~MasterShell();

    // What MAC_ADDRESS of the agent's settings must say.
    static constexpr char kMac[] = "02:00:00:00:00:01";

    //   input  what it reads; without words its first line is the command
    void start(const std::vector<std::string>& words, const std::string& input = "");

    void kill() const { ::kill(pid, SIGKILL); }

    // The exit status, or 128 and the signal; what it said is in output().
    int wait();
    int run(const std::vector<std::string>& words);

    std::string output() const { return LocalAgent::read(outputFile()); }

private:
    std::string home() const { return directory.path() + "/"; }
    std::string outputFile() const { return directory.file("output"); }
    std::string inputFile() const { return directory.file("input"); }

    static std::vector<char*> pointers(std::vector<std::string>& texts);

    TempDir directory;
    pid_t pid = -1;
};
