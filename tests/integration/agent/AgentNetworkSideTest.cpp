#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <gtest/gtest.h>
#include <openssl/err.h>

#include "CException.h"
#include "CUtil.h"
#include "Dialer.h"
#include "LocalAgent.h"
#include "NetworkSide.h"
#include "Sanitizers.h"
#include "SocketDial.h"
#include "TlsSocket.h"

// The process between a session and the network: what it may do, and what its fall takes along.

namespace {

std::string statusField(pid_t pid, const std::string& field) {
    std::istringstream status(LocalAgent::read("/proc/" + std::to_string(pid) + "/status"));
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind(field + ":", 0) == 0) {
            const std::string::size_type at = line.find_first_not_of(" \t", field.size() + 1);
            return at == std::string::npos ? "" : line.substr(at);
        }
    }
    return "no such field";
}

// Where the program begins; empty when that cannot be told.
std::string placeOfProgram(pid_t pid) {
    std::istringstream maps(LocalAgent::read("/proc/" + std::to_string(pid) + "/maps"));
    std::string line;
    while (std::getline(maps, line)) {
        if (line.find("/kelnode") != std::string::npos) {
            return line.substr(0, line.find('-'));
        }
    }
    return "";
}

bool isConfinedHere(const LocalAgent& agent) {
    return agent.log().find("the network side of a session") == std::string::npos;
}

// A master who has authenticated changes its keys so many times. Whether the agent took them all.
bool takesKeyUpdates(const LocalAgent& agent, int count) {
    TlsFiles files;
    files.certificateFile = agent.masterCertificate();
    const std::shared_ptr<TlsContext> context = TlsContext::client(files);
    const FreedBy<SSL, SSL_free> ssl(SSL_new(context->get()));
    const UniqueFd fd = SocketDial::connect(agent.ip(), agent.port(), LocalAgent::soon());
    ::fcntl(fd.get(), F_SETFL, ::fcntl(fd.get(), F_GETFL) & ~O_NONBLOCK);
    // It raises no SIGPIPE.
    BIO* const bio = tlssocket::newBio(fd.get());
    SSL_set_bio(ssl.get(), bio, bio);
    EXPECT_EQ(1, SSL_connect(ssl.get()));
    const std::string hello = protocol::encode(protocol::ShellHello());
    EXPECT_GT(SSL_write(ssl.get(), hello.data(), static_cast<int>(hello.size())), 0);
    for (int i = 0; i < count; ++i) {
        if (SSL_key_update(ssl.get(), SSL_KEY_UPDATE_NOT_REQUESTED) != 1 ||
            SSL_do_handshake(ssl.get()) != 1) {
            ERR_clear_error();
            return false;
        }
    }
    return true;
}

class AgentNetworkSide : public testing::Test {
protected:
    pid_t networkSide() const {
        EXPECT_TRUE(waitFor([&] { return agent.processes("kelnode-network").size() == 1; }));
        const std::vector<pid_t> found = agent.processes("kelnode-network");
        return found.empty() ? 0 : found.front();
    }
    bool isTidy() const {
        return waitFor([&] {
            return agent.processes("kelnode-network").empty() &&
                   agent.processes("kelnode-session").empty();
        });
    }
    std::string echo() const {
        CResult result;
        agent.connect()->execute("echo served", 20000, &result);
        return result.getRunSummary();
    }

    LocalAgent agent;
};

}  // namespace

TEST_F(AgentNetworkSide, HasNoPrivileges) {
    const auto channel = agent.openChannel();
    const pid_t pid = networkSide();
    EXPECT_EQ("1", statusField(pid, "NoNewPrivs"));
    if (!isConfinedHere(agent)) {
        GTEST_SKIP() << "not confined here: " << agent.log();
    }
    EXPECT_EQ("2", statusField(pid, "Seccomp"));
    EXPECT_EQ("", statusField(pid, "Groups"));
    for (const char* name : {"Uid", "Gid"}) {
        std::istringstream ids(statusField(pid, name));
        long id = 0;
        int count = 0;
        while (ids >> id) {
            EXPECT_NE(id, 0) << name;
            ++count;
        }
        EXPECT_EQ(4, count) << name;
    }
    for (const char* name : {"CapEff", "CapPrm", "CapInh"}) {
        EXPECT_EQ("0000000000000000", statusField(pid, name)) << name;
    }
    const std::string proc = "/proc/" + std::to_string(pid);
    EXPECT_EQ(agent.runPath() + "empty/",
              std::filesystem::read_symlink(proc + "/root").string() + "/");
    EXPECT_EQ((std::vector<std::string>{"0", "1"}), LocalAgent::list(proc + "/fd"));
    EXPECT_EQ(std::vector<std::string>(), LocalAgent::list(proc + "/root"));
}

TEST_F(AgentNetworkSide, MemoryOfBothHalvesIsBoundedAndThatOfJobsIsNot) {
    if (kSanitizersAllocator) {
        GTEST_SKIP() << "sanitizers need terabytes";
    }
    const auto channel = agent.openChannel();
    const auto limitOf = [](pid_t pid) {
        std::istringstream limits(LocalAgent::read("/proc/" + std::to_string(pid) + "/limits"));
        std::string line;
        unsigned long long bytes = 0;
        while (std::getline(limits, line)) {
            if (line.rfind("Max data size", 0) == 0 &&
                std::sscanf(line.c_str(), "Max data size %llu", &bytes) == 1) {
                return bytes;
            }
        }
        return ~0ULL;
    };
    EXPECT_LE(limitOf(networkSide()), 64ULL << 20U);
    EXPECT_LE(limitOf(agent.processes("kelnode-session").at(0)), 128ULL << 20U);
    CResult result;
    agent.connect()->execute("ulimit -S -d; ulimit -H -d", 20000, &result);
    std::string expected;
    CUtil::exec_cmd("ulimit -S -d; ulimit -H -d", &expected, &expected);
    EXPECT_EQ(expected, result.getRunSummary());
}

TEST_F(AgentNetworkSide, KeysThatChangeWithoutEndEndTheConnection) {
    EXPECT_FALSE(takesKeyUpdates(agent, 200000));
    EXPECT_TRUE(isTidy());
    EXPECT_EQ("served\n", echo());
}

TEST_F(AgentNetworkSide, SessionHoldsNoConnection) {
    const auto channel = agent.openChannel();
    networkSide();
    const pid_t session = agent.processes("kelnode-session").at(0);
    const std::string directory = "/proc/" + std::to_string(session) + "/fd";
    const std::string sockets = LocalAgent::read("/proc/net/tcp");
    for (const std::string& name : LocalAgent::list(directory)) {
        const std::string target = std::filesystem::read_symlink(directory + "/" + name).string();
        if (target.rfind("socket:[", 0) == 0) {
            const std::string inode = target.substr(8, target.size() - 9);
            EXPECT_EQ(std::string::npos, sockets.find(" " + inode + " ")) << name;
        }
    }
}

TEST_F(AgentNetworkSide, KeyOfTheNodeIsNotInItsMemory) {
    if (kSanitizersAllocator) {
        GTEST_SKIP() << "a sanitizer keeps memory that was given back, and stacks that are over";
    }
    const auto channel = agent.openChannel();
    const pid_t pid = networkSide();
    const std::string pem = LocalAgent::read(agent.nodePath() + "node.key");
    const std::unique_ptr<BIO, decltype(&BIO_free)> bio(
        BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())), &BIO_free);
    const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(
        PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr), &EVP_PKEY_free);
    ASSERT_TRUE(key);
    BIGNUM* number = nullptr;
    ASSERT_EQ(1, EVP_PKEY_get_bn_param(key.get(), "priv", &number));
    std::string big(32, '\0');
    BN_bn2binpad(number, reinterpret_cast<unsigned char*>(&big[0]), 32);
    BN_clear_free(number);
    // As the library calculates with it.
    const std::string little(big.rbegin(), big.rend());
    const auto holds = [&](pid_t who) {
        std::ifstream maps("/proc/" + std::to_string(who) + "/maps");
        std::ifstream memory("/proc/" + std::to_string(who) + "/mem", std::ios::binary);
        std::string line;
        while (std::getline(maps, line)) {
            unsigned long long from = 0;
            unsigned long long to = 0;
            char mode[5] = "";
            if (std::sscanf(line.c_str(), "%llx-%llx %4s", &from, &to, mode) != 3 ||
                mode[0] != 'r' || mode[1] != 'w' || to - from > (256ULL << 20U)) {
                continue;
            }
            std::string bytes(to - from, '\0');
            memory.clear();
            memory.seekg(static_cast<std::streamoff>(from));
            memory.read(&bytes[0], static_cast<std::streamsize>(bytes.size()));
            if (bytes.find(big) != std::string::npos || bytes.find(little) != std::string::npos) {
                return true;
            }
        }
        return false;
    };
    EXPECT_TRUE(holds(agent.listenerPid())) << "it is not looked for where it is";
    EXPECT_FALSE(holds(pid));
}

TEST_F(AgentNetworkSide, ItsDeathEndsTheSessionAndItsJob) {
    const auto channel = agent.openChannel();
    protocol::Exec exec;
    exec.commandLine = "touch " + agent.nodePath() + "begun; sleep 60";
    channel->sendFrame(protocol::encode(exec, 0), LocalAgent::soon());
    ASSERT_TRUE(waitFor([&] { return std::filesystem::exists(agent.nodePath() + "begun"); }));
    ::kill(networkSide(), SIGKILL);
    EXPECT_THROW(channel->receiveFrame(LocalAgent::soon()), ChannelError);
    EXPECT_TRUE(isTidy());
    EXPECT_TRUE(waitFor([&] { return agent.processes("kelnode-job").empty(); }));
    EXPECT_TRUE(agent.waitForLog("cancelled"));
    EXPECT_TRUE(waitFor([&] { return agent.records().empty(); }));
    EXPECT_EQ("served\n", echo());
}

TEST_F(AgentNetworkSide, ItsDeathLeavesAFlashAlone) {
    const auto channel = agent.openChannel();
    protocol::Exec exec;
    exec.commandLine =
        "touch " + agent.nodePath() + "begun; sleep 1.5; touch " + agent.nodePath() + "flashed";
    channel->sendFrame(protocol::encode(exec, protocol::kFlagUninterruptible), LocalAgent::soon());
    ASSERT_TRUE(waitFor([&] { return std::filesystem::exists(agent.nodePath() + "begun"); }));
    ::kill(networkSide(), SIGKILL);
    EXPECT_TRUE(waitFor([&] { return std::filesystem::exists(agent.nodePath() + "flashed"); }));
    EXPECT_TRUE(agent.waitForLog("ended with exit code 0"));
}

TEST_F(AgentNetworkSide, ReloadChangesTheLayoutOfItsAddresses) {
    const auto first = agent.openChannel();
    const std::string before = placeOfProgram(networkSide());
    const std::string own = placeOfProgram(agent.listenerPid());
    EXPECT_NE(own, before);
    agent.signal(SIGHUP);
    ASSERT_TRUE(agent.waitForLog("read anew"));
    const auto second = agent.openChannel();
    ASSERT_TRUE(waitFor([&] { return agent.processes("kelnode-network").size() == 2; }));
    const std::vector<pid_t> both = agent.processes("kelnode-network");
    const std::string one = placeOfProgram(both.at(0));
    const std::string other = placeOfProgram(both.at(1));
    EXPECT_NE("", one);
    EXPECT_NE(one, other);
    EXPECT_EQ(TlsChannel::Peer::kSilent, first->lookAtPeer());
}

TEST_F(AgentNetworkSide, DeathOfTheZygoteIsMadeGood) {
    const auto kept = agent.openChannel();
    ASSERT_EQ(1U, agent.processes("kelnode-zygote").size());
    ::kill(agent.processes("kelnode-zygote").front(), SIGKILL);
    ASSERT_TRUE(agent.waitForLog("has ended; it is started anew"));
    EXPECT_EQ(TlsChannel::Peer::kSilent, kept->lookAtPeer());
    EXPECT_EQ("served\n", echo());
    EXPECT_EQ(1U, agent.processes("kelnode-zygote").size());
}

TEST_F(AgentNetworkSide, BegunHandshakeEndsWithItsSession) {
    const UniqueFd peer = SocketDial::connect(agent.ip(), agent.port(), LocalAgent::soon());
    std::string half = std::string("\x16\x03\x01\x01\x00\x01\x00\x00\xfc\x03\x03", 11);
    half.resize(200, 'r');
    ASSERT_EQ(200, ::send(peer.get(), half.data(), half.size(), MSG_NOSIGNAL));
    networkSide();
    const auto start = TlsChannel::Clock::now();
    ::kill(agent.processes("kelnode-session").at(0), SIGKILL);
    EXPECT_TRUE(isTidy());
    // Long before the time for the handshake is over.
    EXPECT_LT(TlsChannel::Clock::now() - start, std::chrono::milliseconds(3000));
}

TEST_F(AgentNetworkSide, EndsWithItsSession) {
    const auto channel = agent.openChannel();
    networkSide();
    ::kill(agent.processes("kelnode-session").at(0), SIGKILL);
    EXPECT_THROW(channel->receiveFrame(TlsChannel::after(1000)), ChannelError);
    EXPECT_TRUE(isTidy());
    EXPECT_EQ("served\n", echo());
}

TEST_F(AgentNetworkSide, LeavesNobodyBehind) {
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ("served\n", echo());
        Dialer::process().pool().clear();
    }
    EXPECT_TRUE(isTidy());
}

// An agent that may not change root directories.
class UnconfinedAgent : public testing::Test {
protected:
    void SetUp() override {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "only root can be kept from it";
        }
        agent.signal(SIGTERM);
        ASSERT_TRUE(agent.waitForExit());
    }
    int run(const std::string& options, std::string& output) const {
        return CUtil::exec_cmd("KELNODE_PATH=" + agent.nodePath() +
                                   " setpriv --bounding-set=-sys_chroot --inh-caps=-sys_chroot " +
                                   KELSH_BINARY_DIR + "/bin/kelnode " + options,
                               &output, &output);
    }
    void allow() {
        agent.configuration().settings["ALLOW_UNCONFINED"] = "yes";
        agent.writeConfiguration();
    }

    LocalAgent agent;
};

TEST_F(UnconfinedAgent, DoesNotStartAsRoot) {
    std::string output;
    EXPECT_EQ(1, run("", output));
    EXPECT_NE(std::string::npos, output.find("ALLOW_UNCONFINED=yes")) << output;
    EXPECT_NE(std::string::npos, output.find("changing them is not allowed here")) << output;
    EXPECT_NE(0, run("--check", output));
}

TEST_F(UnconfinedAgent, StartsWhereThatIsAllowedAndSaysSo) {
    allow();
    std::string output;
    EXPECT_EQ(0, run("--check", output)) << output;
    EXPECT_NE(std::string::npos, output.find("note: the network side of a session")) << output;
    std::string address;
    const std::string said = agent.nodePath() + "address";
    run("--ready-fd 1 >" + said + " & while kill -0 $! && ! grep -q : " + said +
            "; do sleep 0.05; done; kill $!; wait $!; cat " + said,
        address);
    EXPECT_NE(std::string::npos, address.find(agent.ip() + ":")) << address;
    EXPECT_NE(std::string::npos, agent.log().find("as ALLOW_UNCONFINED wants it"));
}

// What a network side that has been taken over may try: the session's half is driven directly.
class ForgedNetworkSide : public testing::Test {
protected:
    ForgedNetworkSide() {
        int ends[2] = {-1, -1};
        EXPECT_EQ(0, ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends));
        own.reset(ends[0]);
        theirs.reset(ends[1]);
        TlsFiles files;
        files.certificateFile = pki.node().certificateFile;
        context = TlsContext::server(files);
    }
    // What comes of it when these bytes are all that is said.
    std::string fateOf(const std::string& bytes) {
        EXPECT_EQ(static_cast<ssize_t>(bytes.size()),
                  ::send(own.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL));
        ::shutdown(own.get(), SHUT_WR);
        NetworkSide side(std::move(theirs), context, "127.0.0.1:1", TlsChannel::after(200));
        try {
            return "let in as " + side.authenticate().name;
        } catch (const CException& refused) {
            return refused.getErrMsg();
        }
    }
    static std::string message(char type, const std::string& body) {
        const std::uint32_t length = htonl(static_cast<std::uint32_t>(body.size()));
        return type + std::string(reinterpret_cast<const char*>(&length), sizeof length) + body;
    }

    TempDir directory;
    TestPki pki{directory.file("pki")};
    std::shared_ptr<TlsContext> context;
    UniqueFd own;
    UniqueFd theirs;
};

TEST_F(ForgedNetworkSide, FramesBeforeTheProofAreNoFrames) {
    protocol::ShellHello hello;
    protocol::Exec exec;
    exec.commandLine = "touch " + directory.file("never");
    EXPECT_EQ(std::string::npos,
              fateOf(protocol::encode(hello) + protocol::encode(exec, 0)).find("let in"));
    EXPECT_FALSE(std::filesystem::exists(directory.file("never")));
}

TEST_F(ForgedNetworkSide, ProofOutOfNothingIsRefused) {
    EXPECT_NE(fateOf(message('P', "CN=master")).find("never asked"), std::string::npos);
}

TEST_F(ForgedNetworkSide, SignatureOfSomethingElseIsRefused) {
    EXPECT_NE(fateOf(message('S', std::string(130, ' '))).find("not trusted"), std::string::npos);
}

TEST_F(ForgedNetworkSide, OversizedMessageIsRefusedUnread) {
    std::string bytes = "S";
    bytes += std::string("\xff\xff\xff\xff", 4);
    EXPECT_NE(fateOf(bytes).find("too much"), std::string::npos);
}

TEST_F(ForgedNetworkSide, UnknownMessageIsRefused) {
    EXPECT_NE(fateOf(message('X', "")).find("does not keep to its part"), std::string::npos);
}

TEST_F(ForgedNetworkSide, SilenceEnds) {
    NetworkSide side(std::move(theirs), context, "127.0.0.1:1", TlsChannel::after(100));
    EXPECT_THROW(side.authenticate(), ChannelError);
}

TEST_F(ForgedNetworkSide, ReasonsAreCutToSize) {
    const std::string fate =
        fateOf(message('F', std::string(1, '\xee') + std::string(200000, 'x')));
    EXPECT_LE(fate.size(), 4096U);
}
