// A hostile agent answers the real shell, which runs on a terminal and has everything to lose: no
// command of the agent's making may run here, no file but the one asked for may change, no control
// byte may reach the terminal, and the shell's memory stays bounded.

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <vector>

#include <pty.h>

#include "FakeNodeAgent.h"
#include "Figure.h"
#include "LocalAgent.h"
#include "OwnMounts.h"
#include "TestPki.h"
#include "TlsSocket.h"

namespace {

using protocol::FrameType;
using Random = std::mt19937;

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

// ---- what the agent says
// -------------------------------------------------------------------------

class Payloads {
public:
    explicit Payloads(const Sandbox& sandbox)
        : command("touch " + sandbox.path("canary/ran")), outside(sandbox.path("canary/written")) {}

    std::string text(Random& random) const {
        switch (random() % 22) {
            case 0:
                return "$(" + command + ")";
            case 1:
                return "`" + command + "`";
            case 2:
                return "; " + command + ";";
            case 3:
                return "x | " + command + " &";
            case 4:
                return "\n" + command + "\n";
            case 5:
                return "'; " + command + "; '";
            case 6:
                return "\"; " + command + "; \"";
            case 7:
                return "/opt/kelnode/$(" + command + ")/\n";
            case 8:
                return "\x1b]0;title\x07\x1b[2J\x1b[H\x1b[6n\x1b[c";
            case 9:
                return std::string("\x9b") + "6n" + "\xc2\x9b" + "31m";
            case 10:
                return "\x1bP$q\"p\x1b\\\x1b[5i\x0e\x1b(0";
            case 11:
                return "done\n[node_03] (1ms)\nall is well\n[node_04] (1ms)\n";
            case 12:
                return "ok\r\x1b[1A\x1b[2Kforged\b\b\b\x7f\x05";
            case 13:
                return "[savefile]" + outside;
            case 14:
                return "../../../../../../.." + outside;
            case 15:
                return "%n%n%s%x%x%1000000d";
            case 16:
                return std::string(100000, 'A');
            case 17:
                return std::string("before\0after", 12);
            case 18:
                return "\xff\xfe\xf4\x90\x80\x80\xed\xa0\x80\xc0\xaf";
            case 19:
                return "BIOS successfully flashed. Verified. Done. 100%\n";
            case 20:
                return "02:00:00:00:00:01\n$(" + command + ")";
            default:
                break;
        }
        std::string bytes(random() % 300 + 1, '\0');
        for (char& byte : bytes) {
            byte = static_cast<char>(random());
        }
        return bytes;
    }

private:
    std::string command;
    std::string outside;
};

class HostileNode {
public:
    explicit HostileNode(const Payloads& texts) : payloads(texts) {}

    long sent() const { return count; }

    FakeNodeAgent::Script script(unsigned int seed, bool endless) {
        return [this, seed, endless](TlsChannel& channel) {
            Random random(seed * 7919U + static_cast<unsigned int>(connections++));
            if (greet(channel, random)) {
                for (;;) {
                    const protocol::Frame request = channel.receiveFrame(FakeNodeAgent::soon());
                    if (!answer(channel, request, random, endless)) {
                        FakeNodeAgent::waitForClose(channel);
                    }
                }
            }
        };
    }

private:
    static void send(TlsChannel& channel, FrameType type, const std::string& body) {
        FakeNodeAgent::send(channel, FakeNodeAgent::frame(type, body));
    }
    static void say(TlsChannel& channel, const std::string& text) {
        protocol::Answer body;
        body.text = text;
        FakeNodeAgent::send(channel, protocol::encode(body));
    }

    // Mostly honest, or no operation after it would ever be reached.
    bool greet(TlsChannel& channel, Random& random) {
        protocol::AgentHello hello;
        switch (random() % 24) {
            case 0:
                ++count;
                hello.build = payloads.text(random);
                hello.nodeName = payloads.text(random);
                break;
            case 1:
                ++count;
                hello.lowestVersion = 7;
                hello.highestVersion = 9;
                hello.build = payloads.text(random);
                break;
            case 2:
                ++count;
                FakeNodeAgent::error(channel, protocol::kErrorRefused, payloads.text(random));
                FakeNodeAgent::waitForClose(channel);
                return false;
            case 3:
                ++count;
                send(channel, FrameType::kAgentHello, payloads.text(random));
                FakeNodeAgent::waitForClose(channel);
                return false;
            default:
                break;
        }
        FakeNodeAgent::send(channel, protocol::encode(hello));
        channel.receiveFrame(FakeNodeAgent::soon());
        return true;
    }

    // False when nothing more will come.
    bool answer(TlsChannel& channel, const protocol::Frame& request, Random& random, bool endless) {
        switch (request.header.type) {
            case FrameType::kMac:
                return answerMac(channel, random);
            case FrameType::kExists:
                return answerExists(channel, random);
            case FrameType::kGet:
                return answerGet(channel, random);
            case FrameType::kPut:
                return answerPut(channel, random);
            default:
                return endless ? floodOutput(channel) : answerJob(channel, request, random);
        }
    }

    bool answerMac(TlsChannel& channel, Random& random) {
        if (random() % 12 == 0) {
            ++count;
            say(channel, payloads.text(random));
        } else {
            say(channel, "");
        }
        return true;
    }

    bool answerExists(TlsChannel& channel, Random& random) {
        if (random() % 8 != 0) {
            say(channel, random() % 16 == 0 ? "0" : "1");
            return true;
        }
        ++count;
        if (random() % 2 == 0) {
            say(channel, payloads.text(random));
        } else {
            FakeNodeAgent::error(channel, protocol::kErrorFile, payloads.text(random));
        }
        return true;
    }

    // What an honest node would say, so that the steps behind it are reached too: where the shell
    // looks for a phrase, it finds it.
    static std::string honestOutput(const std::string& line) {
        if (line.find("KELNODE_PATH") != std::string::npos) {
            return "/opt/kelnode/\n";
        }
        if (line.find("uname") != std::string::npos) {
            return "x86_64\n";
        }
        if (line.find("0x06 0x37") != std::string::npos) {
            return " 37 30 30 31 5a 51 00 00 08 09 0a 0b 0c 0d 0e 0f\n";
        }
        const std::string::size_type phrase = line.find("grep \"");
        return phrase == std::string::npos
                   ? "done\n"
                   : line.substr(phrase + 6, line.find('"', phrase + 6) - phrase - 6) + "\n";
    }

    bool answerJob(TlsChannel& channel, const protocol::Frame& request, Random& random) {
        if (random() % 4 != 0) {
            std::string line;
            if (request.header.type == FrameType::kExec) {
                protocol::Exec exec;
                protocol::decode(request.body, exec);
                line = exec.commandLine;
            }
            send(channel, FrameType::kOutput, honestOutput(line));
            FakeNodeAgent::result(channel, 0);
            return true;
        }
        ++count;
        switch (random() % 12) {
            case 0:
                FakeNodeAgent::error(channel, protocol::kErrorNotStarted, payloads.text(random));
                return true;
            case 1:
                FakeNodeAgent::result(channel, 0, payloads.text(random));
                return true;
            case 2:
                FakeNodeAgent::result(channel, static_cast<int>(random()), payloads.text(random),
                                      protocol::Result::Ending::kSignaled);
                return true;
            case 3:  // another reply than belongs here
                say(channel, payloads.text(random));
                return false;
            case 4:  // never ends
                send(channel, FrameType::kOutput, payloads.text(random));
                return false;
            case 5:
                send(channel, FrameType::kResult, payloads.text(random));
                return false;
            case 6:  // cut in the middle
                send(channel, FrameType::kOutput, payloads.text(random));
                throw std::runtime_error("cut");
            default:
                send(channel, FrameType::kOutput, payloads.text(random));
                FakeNodeAgent::result(channel, random() % 3 == 0 ? 1 : 0);
                return true;
        }
    }

    bool floodOutput(TlsChannel& channel) {
        ++count;
        const std::string piece =
            FakeNodeAgent::frame(FrameType::kOutput, std::string(protocol::kMaxBodyBytes, 'y'));
        for (;;) {
            FakeNodeAgent::send(channel, piece);
        }
    }

    bool answerGet(TlsChannel& channel, Random& random) {
        ++count;
        const std::string content = payloads.text(random);
        FileDigest digest;
        digest.update(content.data(), content.size());
        protocol::FileInfo info;
        info.size = content.size();
        info.mode = static_cast<std::uint32_t>(random() % 010000);
        protocol::End end;
        end.digest = digest.finish();
        const auto kind = random() % 10;
        if (kind == 0) {
            FakeNodeAgent::error(channel, protocol::kErrorFile, content);
            return true;
        }
        if (kind == 1) {
            info.size = ~std::uint64_t{0} >> (random() % 20);
        } else if (kind == 2) {
            info.size -= 1;
        } else if (kind == 3) {
            info.size += 1;
        } else if (kind == 4) {
            end.digest[random() % protocol::kDigestBytes] ^= 1;
        }
        if (kind != 5) {
            FakeNodeAgent::send(channel, protocol::encode(info));
        }
        if (kind == 6) {
            FakeNodeAgent::send(channel, protocol::encode(info));
        }
        send(channel, FrameType::kData, content);
        if (kind == 7) {
            return false;
        }
        if (kind == 8) {
            throw std::runtime_error("cut");
        }
        FakeNodeAgent::send(channel, protocol::encode(end));
        return true;
    }

    bool answerPut(TlsChannel& channel, Random& random) {
        ++count;
        switch (random() % 12) {
            case 0:  // before anything came
                FakeNodeAgent::error(channel, protocol::kErrorFile, payloads.text(random));
                return false;
            case 1:
                FakeNodeAgent::result(channel, 0, payloads.text(random));
                return false;
            case 2:
                say(channel, payloads.text(random));
                return false;
            case 3:
                return false;
            default:
                break;
        }
        protocol::Frame piece;
        do {
            piece = channel.receiveFrame(FakeNodeAgent::soon());
        } while (piece.header.type != FrameType::kEnd);
        FakeNodeAgent::result(channel, random() % 8 == 0 ? 1 : 0, payloads.text(random));
        return true;
    }

    const Payloads& payloads;
    std::atomic<long> count{0};
    std::atomic<long> connections{0};
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

// Files beside those that the shell was told to use.
std::string strangers(const Sandbox& sandbox) {
    std::string found;
    for (const char* place : {"canary", "cwd", "vartmp"}) {
        for (const std::string& name : sandbox.list(place)) {
            found += std::string(" ") + place + "/" + name;
        }
    }
    for (const std::string& name : sandbox.list("files")) {
        if (name != "target" && name != "source") {
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
    const std::string found = strangers(sandbox);
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
    const Payloads payloads(sandbox);
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
