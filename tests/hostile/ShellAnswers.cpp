// A hostile agent answers the real shell, which runs on a terminal and has everything to lose: no
// command of the agent's making may run here, no file but the one asked for may change, no control
// byte may reach the terminal, and the shell's memory stays bounded.

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <poll.h>
#include <string>
#include <vector>

#include "FakeNodeAgent.h"
#include "Figure.h"
#include "HostileNode.h"
#include "LocalAgent.h"
#include "ShellUnderAttack.h"
#include "TestPki.h"

namespace {

constexpr int kNodes = 16;
constexpr long kMaxShellKiB = 512L * 1024;

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
