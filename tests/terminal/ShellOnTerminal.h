#pragma once

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <sys/wait.h>
#include <vector>

#include <gtest/gtest.h>

#include "PtyTerminal.h"
#include "TempDir.h"
#include "TestPaths.h"

// The real kelsh on a terminal, with commands that run on this machine only.
class ShellOnTerminal : public ::testing::Test {
protected:
    ShellOnTerminal();

    struct Command {
        std::string name;
        std::string line;
        std::string furtherLines = "";
        std::string destination = "MASTER";
    };
    static std::string commandSet(const std::string& name, const std::vector<Command>& commands);
    // The sets "tools", "tooling" and "power", with the given commands added to the first.
    static std::string commandFile(std::vector<Command> commands);
    void writeFile(const std::string& name, const std::string& text) const;
    std::string readFile(const std::string& name) const;

    static std::string program() { return KELSH_BINARY_DIR "/bin/kelsh"; }
    PtyTerminal::Options options(int rows = 24, int columns = 80) const;
    // The shell, at its first prompt.
    std::unique_ptr<PtyTerminal> start(const PtyTerminal::Options& wanted) const;
    std::unique_ptr<PtyTerminal> start(int rows = 24, int columns = 80) const;
    static void quit(PtyTerminal& terminal);
    // A shell whose terminal goes away gets SIGHUP and the end of its input; either may be first.
    static bool endedByHangUp(int status);
    static void expectQuit(PtyTerminal& terminal);

    TempDir directory;
};
