#include "ShellUnderAttack.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <pty.h>

#include "LocalAgent.h"
#include "OwnMounts.h"
#include "TestPaths.h"
#include "TlsSocket.h"

Sandbox::Sandbox() {
    for (const char* name : {"canary", "cwd", "kelsh", "kelsh/cmdexedump", "files", "vartmp"}) {
        std::filesystem::create_directories(path(name));
    }
}

void Sandbox::write(const std::string& name, const std::string& content) const {
    std::ofstream(path(name), std::ios::binary) << content;
}

std::vector<std::string> Sandbox::list(const std::string& name) const {
    return LocalAgent::list(path(name));
}

Shown runShell(const Sandbox& sandbox, const std::string& arguments) {
    const std::string line = "cd " + sandbox.path("cwd") +
                             " && KELSH_PATH=" + sandbox.path("kelsh") +
                             " exec " KELSH_BINARY_DIR "/bin/kelsh " + arguments;
    const OwnMounts mounts({{"/var/tmp", sandbox.path("vartmp")}});
    termios mode{};
    ::cfmakeraw(&mode);
    winsize size{};
    size.ws_row = 50;
    size.ws_col = 200;
    int fd = -1;
    const pid_t child = ::forkpty(&fd, nullptr, &mode, &size);
    if (child == 0) {
        if (mounts.enter()) {
            ::execl("/bin/sh", "sh", "-c", line.c_str(), nullptr);
        }
        ::_exit(127);
    }
    const UniqueFd terminal(fd);
    Shown shown;
    const auto begun = std::chrono::steady_clock::now();
    char bytes[65536];
    const auto limit = TlsChannel::after(60000);
    while (tlssocket::wait(terminal.get(), POLLIN, limit) != 0) {
        const ssize_t count = ::read(terminal.get(), bytes, sizeof bytes);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            shown.ended = true;
            break;
        }
        const std::string part(bytes, static_cast<std::size_t>(count));
        if (part.find("node(s) are loaded") != std::string::npos &&
            ::write(terminal.get(), "quit\n", 5) != 5) {
            break;
        }
        if (part.find("[Yes/No") != std::string::npos && ::write(terminal.get(), "y", 1) != 1) {
            break;
        }
        // A flood is looked at and dropped: only its beginning is kept.
        if (shown.bytes.size() < (1U << 22U)) {
            shown.bytes += part;
        }
    }
    if (!shown.ended) {
        ::kill(child, SIGKILL);
    }
    int status = 0;
    rusage usage{};
    while (::wait4(child, &status, 0, &usage) < 0 && errno == EINTR) {
    }
    shown.lastedMs = static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                           std::chrono::steady_clock::now() - begun)
                                           .count());
    shown.peakKiB = usage.ru_maxrss;
    shown.ended = shown.ended && WIFEXITED(status) && WEXITSTATUS(status) < 126;
    return shown;
}

void writeConfiguration(const Sandbox& sandbox, const TestPki::Identity& master,
                        const std::vector<std::unique_ptr<FakeNodeAgent>>& agents) {
    std::string nodes = "[node]\n";
    std::string all;
    for (std::size_t i = 0; i < agents.size(); ++i) {
        const std::string digits = std::to_string(100 + i).substr(1);
        nodes += "node_" + digits + "=02:00:00:00:00:" + digits +
                 ",127.0.0.1:" + std::to_string(agents[i]->port()) + "\n";
        all += (all.empty() ? "node_" : ",node_") + digits;
    }
    sandbox.write("kelsh/node.cfg", nodes + "[group]\nall=" + all + "\n");
    sandbox.write("kelsh/cmd.cfg",
                  "[cmdset]\nname=lab\ndescription=For the attack.\n[cmd]\nname=ask\n"
                  "description=Asks.\ntype=SCRIPT\ndestination=SLAVE\ncmd=uptime\n");
    sandbox.write("kelsh/ssl_master.cfg",
                  "PRIVATE_KEY_FILE=" + master.keyFile + "\nPUBLIC_KEY_FILE=" + master.keyFile +
                      "\nCERTIFICATE_FILE=" + master.certificateFile + "\n");
    sandbox.write("kelsh/kelsh_version.cfg", "VERSION=1\nBUILD=1\n");
}
