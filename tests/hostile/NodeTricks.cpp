// Nodes that would hold the shell up, lie about who they are, or write into its log: what one of
// them does must cost its own result, in its own time, and nothing else.

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "FakeNode.h"
#include "Figure.h"
#include "FileDigest.h"
#include "LocalAgent.h"
#include "NoisyTlsNode.h"
#include "ShellUnderAttack.h"
#include "TestPki.h"

namespace {

using Agents = std::vector<std::unique_ptr<FakeNodeAgent>>;

constexpr long kTimeOutMs = 1500;
// Six nodes that overrun end together.
constexpr int kOverrunning = 6;
constexpr long kTogetherMs = 3000;
// A shell that starts among such nodes, or runs a command there.
constexpr long kShellMs = 8000;

std::string configuredMac(int index) {
    return "02:00:00:00:00:" + std::to_string(100 + index).substr(1);
}

// What all attacks need.
class Lab {
public:
    Lab() : pki(sandbox.path("pki")), master(pki.master()) {
        files.certificateFile = pki.node().certificateFile;
        // The log shows what reaches it.
        sandbox.write("kelsh/log4cxx.properties",
                      "log4j.rootLogger=INFO, ALL\n"
                      "log4j.appender.ALL=org.apache.log4j.FileAppender\n"
                      "log4j.appender.ALL.File=" +
                          sandbox.path("kelsh/kelsh.log") +
                          "\nlog4j.appender.ALL.layout=org.apache.log4j.PatternLayout\n"
                          "log4j.appender.ALL.layout.ConversionPattern=%d %m%n\n");
    }

    void addGood() {
        nodes.push_back(std::make_unique<FakeNode>());
        nodes.back()->macAddress = configuredMac(static_cast<int>(agents.size()));
        nodes.back()->onCommand = [](const std::string&) { return FakeNode::Reply{"well", 0}; };
        add(nodes.back()->script());
    }
    void add(FakeNodeAgent::Script script) {
        agents.push_back(std::make_unique<FakeNodeAgent>(files, std::move(script)));
    }
    void addRaw(FakeNodeAgent::RawScript script) {
        agents.push_back(std::make_unique<FakeNodeAgent>(std::move(script)));
    }
    Shown run(const std::string& arguments) {
        writeConfiguration(sandbox, master, agents);
        return runShell(sandbox, arguments);
    }
    std::string log() const { return LocalAgent::read(sandbox.path("kelsh/kelsh.log")); }

    Sandbox sandbox;
    TestPki pki;
    TestPki::Identity master;
    TlsFiles files;
    std::vector<std::unique_ptr<FakeNode>> nodes;
    Agents agents;
};

// Tries of one kind, and how many the shell stood.
struct Tally {
    long tries = 0;
    long stood = 0;
    long longestMs = 0;
    std::string trouble;

    void count(bool good, const Shown& shown, const std::string& what) {
        ++tries;
        stood += good ? 1 : 0;
        longestMs = std::max(longestMs, shown.lastedMs);
        if (!good) {
            std::fprintf(stderr, "tricks: %s\n%s\n", what.c_str(),
                         shown.bytes.substr(0, 2000).c_str());
            trouble += "; " + what;
        }
    }
    Figure figure(const std::string& attack) const {
        Figure made;
        made.attack = attack;
        made.tries = tries;
        made.survived = stood;
        made.remark = "the longest lasted " + std::to_string(longestMs) + " ms" + trouble;
        made.isReached = stood == tries;
        return made;
    }
};

bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// Messages of TLS itself without end, right after the handshake or after the greeting. Beside each
// such node stands a good one.
Figure sendTlsNoise(const Scale& scale) {
    using Noise = NoisyTlsNode::Noise;
    Tally tally;
    for (const Noise noise : {Noise::kTickets, Noise::kKeyUpdates, Noise::kRequestedKeyUpdates}) {
        for (const bool greets : {false, true}) {
            Lab lab;
            lab.addRaw(NoisyTlsNode::script(lab.files, noise, greets));
            lab.addGood();
            const std::string kind = std::string("TLS noise ") +
                                     std::to_string(static_cast<int>(noise)) +
                                     (greets ? " after the greeting" : " after the handshake");
            const Shown ran = lab.run("lab ask -g all -t " + std::to_string(kTimeOutMs));
            tally.count(ran.ended && ran.lastedMs < scale.lenient(kShellMs) &&
                            has(ran.bytes, "well") &&
                            has(ran.bytes, "does not keep to the protocol") &&
                            has(ran.bytes, std::to_string(lab.agents[0]->port())),
                        ran, kind);
            const Shown started = lab.run("");
            tally.count(started.ended && started.lastedMs < scale.lenient(kShellMs) &&
                            has(started.bytes, "Bye bye."),
                        started, kind + ", interactive");
        }
    }
    return tally.figure("session tickets and new keys without end");
}

// All of them accept the job and never end it.
Figure overrunTogether(const Scale& scale) {
    Lab lab;
    for (int i = 0; i < kOverrunning; ++i) {
        lab.add([i](TlsChannel& channel) {
            FakeNodeAgent::greet(channel);
            for (;;) {
                const protocol::Frame request = channel.receiveFrame(FakeNodeAgent::soon());
                if (request.header.type == protocol::FrameType::kMac) {
                    protocol::Answer mac;
                    mac.text = configuredMac(i);
                    FakeNodeAgent::send(channel, protocol::encode(mac));
                }
            }
        });
    }
    const Shown shown = lab.run("lab ask -g all -t " + std::to_string(kTimeOutMs));
    bool eachOwnTime = true;
    for (int i = 0; i < kOverrunning; ++i) {
        eachOwnTime = eachOwnTime && has(shown.bytes, "[node_0" + std::to_string(i) + "] (" +
                                                          std::to_string(kTimeOutMs) + "ms)");
    }
    Tally tally;
    tally.count(shown.ended && eachOwnTime && shown.lastedMs < scale.lenient(kTogetherMs), shown,
                "nodes that overrun were waited for one after the other");
    return tally.figure("six nodes that overrun a time-out of 1500 ms");
}

// The first conversation is cut, the second is with another machine.
Figure takeAnothersPlace() {
    Lab lab;
    std::atomic<int> conversations{0};
    std::atomic<int> jobs{0};
    FakeNode other;
    other.macAddress = "02:00:00:00:00:EE";
    other.onCommand = [&](const std::string&) {
        ++jobs;
        return FakeNode::Reply{"taken", 0};
    };
    lab.add([&, talk = other.script()](TlsChannel& channel) {
        // The shell asks once at its start and twice for the command.
        if (conversations++ < 2) {
            throw std::runtime_error("cut");
        }
        talk(channel);
    });
    const Shown shown = lab.run("lab ask -g all -t 6000");
    Tally tally;
    tally.count(shown.ended && jobs == 0 && has(shown.bytes, "are not matched!"), shown,
                "another machine got the command");
    return tally.figure("another machine behind the second connection");
}

// A MAC address with a whole line of the log behind it, and bytes that drive a terminal.
Figure forgeLogLines() {
    Lab lab;
    lab.nodes.push_back(std::make_unique<FakeNode>());
    lab.nodes.back()->macAddress =
        "02:00:00:00:00:EE\n2026-01-01 00:00:00,000 forged\x1b[2J\x1b]0;title\x07";
    lab.add(lab.nodes.back()->script());
    const Shown shown = lab.run("lab ask -g all -t 6000");
    const std::string log = lab.log();
    Tally tally;
    tally.count(shown.ended && !log.empty() && !has(log, "forged") && !has(log, "\x1b") &&
                    lab.nodes.back()->commands().empty(),
                shown, "a node wrote into the log");
    return tally.figure("a MAC address that forges a line of the log");
}

// Rights that nobody gave, and a size that fills the disk.
Figure bringUnwantedFiles() {
    Tally tally;
    for (const bool tooLarge : {false, true}) {
        Lab lab;
        lab.add([tooLarge](TlsChannel& channel) {
            FakeNodeAgent::greet(channel);
            for (;;) {
                const protocol::Frame request = channel.receiveFrame(FakeNodeAgent::soon());
                if (request.header.type == protocol::FrameType::kMac) {
                    protocol::Answer mac;
                    mac.text = configuredMac(0);
                    FakeNodeAgent::send(channel, protocol::encode(mac));
                    continue;
                }
                protocol::FileInfo info;
                info.mode = 06777;
                info.size = tooLarge ? std::uint64_t{1} << 60 : 0;
                FakeNodeAgent::send(channel, protocol::encode(info));
                protocol::End end;
                end.digest = FileDigest().finish();
                FakeNodeAgent::send(channel, protocol::encode(end));
            }
        });
        const std::string target = lab.sandbox.path("files/target");
        const Shown shown = lab.run("get file -f " + target + " -g all");
        const bool exists = std::filesystem::exists(target);
        const auto mode =
            exists ? std::filesystem::status(target).permissions() : std::filesystem::perms::none;
        const bool isWritable =
            (mode & (std::filesystem::perms::others_write | std::filesystem::perms::set_uid |
                     std::filesystem::perms::set_gid)) != std::filesystem::perms::none;
        tally.count(shown.ended && exists != tooLarge && !isWritable &&
                        (!tooLarge || has(shown.bytes, "There is no room for")),
                    shown, tooLarge ? "a file larger than the disk" : "a file for everybody");
    }
    return tally.figure("a file with rights for everybody, a file larger than the disk");
}

}  // namespace

std::vector<Figure> attackShellWithTricks(const Scale& scale) {
    return {sendTlsNoise(scale), overrunTogether(scale), takeAnothersPlace(), forgeLogLines(),
            bringUnwantedFiles()};
}
