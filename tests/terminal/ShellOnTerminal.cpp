#include "ShellOnTerminal.h"

ShellOnTerminal::ShellOnTerminal() {
    std::filesystem::create_directories(directory.file("bin"));
    std::filesystem::create_directories(directory.file("shell/cmdexedump"));
    // The prompt must not depend on this machine's name.
    writeFile("bin/hostname", "#!/bin/sh\necho master\n");
    std::filesystem::permissions(directory.file("bin/hostname"), std::filesystem::perms::owner_all);
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

std::string ShellOnTerminal::commandSet(const std::string& name,
                                        const std::vector<Command>& commands) {
    std::string text = "[cmdset]\nname=" + name + "\ndescription=For tests.\n";
    for (const Command& command : commands) {
        text += "[cmd]\nname=" + command.name + "\ndescription=Does it.\ntype=SCRIPT\n" +
                "destination=" + command.destination + "\ncmd=" + command.line + "\n" +
                command.furtherLines;
    }
    return text;
}

std::string ShellOnTerminal::commandFile(std::vector<Command> commands) {
    commands.push_back({"hello", "echo hello"});
    commands.push_back({"hold", "echo holding; cat"});
    return commandSet("tools", commands) + commandSet("tooling", {{"saw", "echo saw"}}) +
           commandSet("power", {{"on", "echo on"}, {"off", "echo off"}});
}

void ShellOnTerminal::writeFile(const std::string& name, const std::string& text) const {
    std::ofstream(directory.file(name)) << text;
}

std::string ShellOnTerminal::readFile(const std::string& name) const {
    std::ifstream file(directory.file(name));
    return std::string(std::istreambuf_iterator<char>(file), {});
}

PtyTerminal::Options ShellOnTerminal::options(int rows, int columns) const {
    PtyTerminal::Options wanted;
    wanted.rows = rows;
    wanted.columns = columns;
    wanted.directory = directory.file("shell");
    wanted.environment["KELSH_PATH"] = directory.file("shell") + "/";
    wanted.environment["PATH"] = directory.file("bin") + ":" + std::getenv("PATH");
    return wanted;
}

std::unique_ptr<PtyTerminal> ShellOnTerminal::start(const PtyTerminal::Options& wanted) const {
    auto terminal = std::make_unique<PtyTerminal>(std::vector<std::string>{program()}, wanted);
    EXPECT_TRUE(terminal->untilLine("[master]$ "));
    return terminal;
}

std::unique_ptr<PtyTerminal> ShellOnTerminal::start(int rows, int columns) const {
    return start(options(rows, columns));
}

void ShellOnTerminal::quit(PtyTerminal& terminal) {
    terminal.type("quit<cr>");
    expectQuit(terminal);
}

bool ShellOnTerminal::endedByHangUp(int status) {
    constexpr int kQuit = 7;
    return WIFSIGNALED(status) ? WTERMSIG(status) == SIGHUP : WEXITSTATUS(status) == kQuit;
}

void ShellOnTerminal::expectQuit(PtyTerminal& terminal) {
    const std::optional<int> status = terminal.end();
    ASSERT_TRUE(status.has_value()) << "the shell did not end";
    EXPECT_TRUE(WIFEXITED(*status));
    EXPECT_EQ(7, WEXITSTATUS(*status));
}
