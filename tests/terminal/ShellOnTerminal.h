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
    ShellOnTerminal() {
        std::filesystem::create_directories(directory.file("bin"));
        std::filesystem::create_directories(directory.file("shell/cmdexedump"));
        // The prompt must not depend on this machine's name.
        writeFile("bin/hostname", "#!/bin/sh\necho master\n");
        std::filesystem::permissions(directory.file("bin/hostname"),
                                     std::filesystem::perms::owner_all);
        writeFile("shell/node.cfg", "");
        writeFile("shell/ssl_master.cfg",
                  "PRIVATE_KEY_FILE=none.key\nPUBLIC_KEY_FILE=none.pub\n"
                  "CERTIFICATE_FILE=none.crt\n");
        writeFile("shell/kelsh_version.cfg", "VERSION=1.0\nBUILD=7\n");
        writeFile("shell/log4cxx.properties",
                  "log4j.rootLogger=OFF\n"
                  "log4j.logger.kelsh=INFO, KELSH_FILE\n"
                  "log4j.additivity.kelsh=false\n"
                  "log4j.appender.KELSH_FILE=org.apache.log4j.FileAppender\n"
                  "log4j.appender.KELSH_FILE.File=" +
                      directory.file("shell/kelsh.log") +
                      "\nlog4j.appender.KELSH_FILE.layout=org.apache.log4j.PatternLayout\n"
                      "log4j.appender.KELSH_FILE.layout.ConversionPattern=%m%n\n");
        writeFile("shell/cmd.cfg", commandFile({}));
    }

    struct Command {
        std::string name;
        std::string line;
        std::string furtherLines = "";
        std::string destination = "MASTER";
    };
    static std::string commandSet(const std::string& name, const std::vector<Command>& commands) {
        std::string text = "[cmdset]\nname=" + name + "\ndescription=For tests.\n";
        for (const Command& command : commands) {
            text += "[cmd]\nname=" + command.name + "\ndescription=Does it.\ntype=SCRIPT\n" +
                    "destination=" + command.destination + "\ncmd=" + command.line + "\n" +
                    command.furtherLines;
        }
        return text;
    }
    // The sets "tools", "tooling" and "power", with the given commands added to the first.
    static std::string commandFile(std::vector<Command> commands) {
        commands.push_back({"hello", "echo hello"});
        commands.push_back({"hold", "echo holding; cat"});
        return commandSet("tools", commands) + commandSet("tooling", {{"saw", "echo saw"}}) +
               commandSet("power", {{"on", "echo on"}, {"off", "echo off"}});
    }

    void writeFile(const std::string& name, const std::string& text) const {
        std::ofstream(directory.file(name)) << text;
    }
    std::string readFile(const std::string& name) const {
        std::ifstream file(directory.file(name));
        return std::string(std::istreambuf_iterator<char>(file), {});
    }

    static std::string program() { return KELSH_BINARY_DIR "/bin/kelsh"; }
    PtyTerminal::Options options(int rows = 24, int columns = 80) const {
        PtyTerminal::Options wanted;
        wanted.rows = rows;
        wanted.columns = columns;
        wanted.directory = directory.file("shell");
        wanted.environment["KELSH_PATH"] = directory.file("shell") + "/";
        wanted.environment["PATH"] = directory.file("bin") + ":" + std::getenv("PATH");
        return wanted;
    }
    // The shell, at its first prompt.
    std::unique_ptr<PtyTerminal> start(const PtyTerminal::Options& wanted) const {
        auto terminal = std::make_unique<PtyTerminal>(std::vector<std::string>{program()}, wanted);
        EXPECT_TRUE(terminal->untilLine("[master]$ "));
        return terminal;
    }
    std::unique_ptr<PtyTerminal> start(int rows = 24, int columns = 80) const {
        return start(options(rows, columns));
    }

    static void quit(PtyTerminal& terminal) {
        terminal.type("quit<cr>");
        expectQuit(terminal);
    }
    // A shell whose terminal goes away gets SIGHUP and the end of its input; either may be first.
    static bool endedByHangUp(int status) {
        constexpr int kQuit = 7;
        return WIFSIGNALED(status) ? WTERMSIG(status) == SIGHUP : WEXITSTATUS(status) == kQuit;
    }
    static void expectQuit(PtyTerminal& terminal) {
        const std::optional<int> status = terminal.end();
        ASSERT_TRUE(status.has_value()) << "the shell did not end";
        EXPECT_TRUE(WIFEXITED(*status));
        EXPECT_EQ(7, WEXITSTATUS(*status));
    }

    TempDir directory;
};
