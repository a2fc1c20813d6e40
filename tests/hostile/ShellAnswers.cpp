// A hostile agent answers the real shell, which runs on a terminal and has everything to lose: no
// command of the agent's making may run here, no file but the one asked for may change, no control
// byte may reach the terminal, and the shell's memory stays bounded.

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <vector>

#include <pty.h>

#include "FakeNodeAgent.h"
#include "Figure.h"
#include "HostileNode.h"
#include "LocalAgent.h"
#include "OwnMounts.h"
#include "TestPaths.h"
#include "TestPki.h"
#include "TlsSocket.h"

namespace {

constexpr int kNodes = 16;
constexpr long kMaxShellKiB = 512L * 1024;

// Everything the shell touches, in one directory.
class Sandbox {
public:
    Sandbox() {
        for (const char* name : {"canary", "cwd", "kelsh", "kelsh/cmdexedump", "files", "vartmp"}) {
            std::filesystem::create_directories(path(name));
        }
    }
    std::string path(const std::string& name) const { return directory.path() + "/" + name; }
    void write(const std::string& name, const std::string& content) const {
        std::ofstream(path(name), std::ios::binary) << content;
    }
    std::vector<std::string> list(const std::string& name) const {
        return LocalAgent::list(path(name));
    }

private:
    TempDir directory;
};

// ---- the shell that is told so
// -------------------------------------------------------------------

struct Shown {
    std::string bytes;
    long peakKiB = 0;
    bool ended = false;
};

// The real kelsh on a terminal that passes every byte as it is. Questions are answered with yes.
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
    shown.peakKiB = usage.ru_maxrss;
    shown.ended = shown.ended && WIFEXITED(status) && WEXITSTATUS(status) < 126;
    return shown;
}

// The first byte a terminal would obey; npos where there is none.
std::string::size_type firstControlByte(const std::string& text) {
    for (std::string::size_type at = 0; at < text.size(); ++at) {
        const auto byte = static_cast<unsigned char>(text[at]);
        const bool isC1 = byte >= 0x80 && byte < 0xa0 &&
                          (at == 0 || static_cast<unsigned char>(text[at - 1]) == 0xc2 ||
                           static_cast<unsigned char>(text[at - 1]) < 0x80);
        const bool isLineEnd = byte == '\r' && at + 1 < text.size() && text[at + 1] == '\n';
        if ((byte < 0x20 && byte != '\n' && byte != '\t' && !isLineEnd) || byte == 0x7f || isC1) {
            return at;
        }
    }
    return std::string::npos;
}

std::string escapedAround(const std::string& text, std::string::size_type at) {
    std::string shown;
    const std::string::size_type begin = at < 60 ? 0 : at - 60;
    for (const char byte : text.substr(begin, 100)) {
        char code[8];
        std::snprintf(code, sizeof code, byte >= 0x20 && byte < 0x7f ? "%c" : "\\x%02x",
                      static_cast<unsigned char>(byte));
        shown += code;
    }
    return shown;
}

const std::array<const char*, 12> kCommands{
    "lab ask -g all",
    "get file -f FILES/target -g all",
    "save file -f FILES/source -g all",
    "r3biosfw get bios id from system -g all",
    "r3biosfw save bios fw -f FILES/target -g all",
    "r3biosfw flash bios fw -f FILES/source -g all",
    "r3biosfw backup bios config -f FILES/target -m raw -g all",
    "biosfw save bios fw -f FILES/target -g all",
    "biosfw validate bios id -f FILES/source -g all",
    "biosfw check bios memory chip -g all",
    "ipmifw get ipmi fw revision -g all",
    "ipmifw flash ipmi fw -f FILES/source -g all"};

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

struct Tally {
    long rounds = 0;
    long good = 0;
    long peakKiB = 0;
    long endlessPeakKiB = 0;
    std::string trouble;
    void complain(const std::string& text) {
        std::fprintf(stderr, "payloads: %s\n", text.c_str());
        if (trouble.empty()) {
            trouble = "; " + text.substr(0, 60);
        }
    }
};

// Files beside those that the shell was told to use. A raw backup is three.
std::string strangers(const Sandbox& sandbox, const std::string& command) {
    const bool isRaw = command.find(" -m raw") != std::string::npos;
    std::string found;
    for (const char* place : {"canary", "cwd", "vartmp"}) {
        for (const std::string& name : sandbox.list(place)) {
            found += std::string(" ") + place + "/" + name;
        }
    }
    for (const std::string& name : sandbox.list("files")) {
        const bool isPartOfRaw = isRaw && (name == "target.list" || name == "target.hii");
        if (name != "target" && name != "source" && !isPartOfRaw) {
            found += " files/" + name;
        }
    }
    return found;
}

void check(const Sandbox& sandbox, const std::string& command, const Shown& shown, Tally& tally) {
    bool good = true;
    const auto complain = [&](const std::string& text) {
        good = false;
        tally.complain(command + ": " + text);
    };
    if (!shown.ended) {
        complain("the shell did not end in order");
    }
    const std::string::size_type at = firstControlByte(shown.bytes);
    if (at != std::string::npos) {
        complain("control byte on the terminal: " + escapedAround(shown.bytes, at));
    }
    const std::string found = strangers(sandbox, command);
    if (!found.empty()) {
        complain("files outside the target:" + found);
    }
    if (LocalAgent::read(sandbox.path("files/source")) != std::string(300000, 's')) {
        complain("the source of a copy was changed");
    }
    const auto mode = std::filesystem::status(sandbox.path("files/target")).permissions();
    if (std::filesystem::exists(sandbox.path("files/target")) &&
        (mode & (std::filesystem::perms::set_uid | std::filesystem::perms::set_gid)) !=
            std::filesystem::perms::none) {
        complain("a setuid file was made");
    }
    tally.good += good ? 1 : 0;
    for (const char* const made : {"files/target", "files/target.list", "files/target.hii"}) {
        std::filesystem::remove(sandbox.path(made));
    }
}

}  // namespace

std::vector<Figure> attackShellWithAnswers(const Scale& scale) {
    const long wanted = scale.pick(5000, 300);
    const Sandbox sandbox;
    TestPki pki(sandbox.path("pki"));
    const TestPki::Identity master = pki.master();
    const TestPki::Identity nodeIdentity = pki.node();
    TlsFiles files;
    files.certificateFile = nodeIdentity.certificateFile;
    sandbox.write("files/source", std::string(300000, 's'));
    const Payloads payloads(sandbox.path("canary"));
    HostileNode node(payloads);
    Tally tally;
    while (node.sent() < wanted) {
        const bool endless = tally.rounds % 24 == 12;
        std::vector<std::unique_ptr<FakeNodeAgent>> agents;
        for (int i = 0; i < kNodes; ++i) {
            agents.push_back(std::make_unique<FakeNodeAgent>(
                files, node.script(static_cast<unsigned int>(tally.rounds * kNodes + i),
                                   endless && i == 0)));
        }
        writeConfiguration(sandbox, master, agents);
        std::string command = kCommands[static_cast<std::size_t>(tally.rounds) % kCommands.size()];
        const std::string::size_type at = command.find("FILES");
        if (at != std::string::npos) {
            command.replace(at, 5, sandbox.path("files"));
        }
        const Shown shown = runShell(sandbox, command + " -t 1500");
        long& peak = endless ? tally.endlessPeakKiB : tally.peakKiB;
        peak = std::max(peak, shown.peakKiB);
        ++tally.rounds;
        check(sandbox, command, shown, tally);
    }
    Figure figure;
    figure.attack = "hostile answers to every operation of the shell";
    figure.tries = node.sent();
    figure.survived = tally.good == tally.rounds ? node.sent() : 0;
    figure.growthKiB = tally.peakKiB;
    figure.remark = std::to_string(tally.good) + " of " + std::to_string(tally.rounds) +
                    " shells unharmed; memory is the highest of a shell with " +
                    std::to_string(kNodes) + " nodes, with endless output " +
                    std::to_string(tally.endlessPeakKiB / 1024) + " MiB" + tally.trouble;
    figure.isReached = tally.good == tally.rounds && tally.peakKiB < kMaxShellKiB &&
                       tally.endlessPeakKiB < kMaxShellKiB;
    return {figure};
}
