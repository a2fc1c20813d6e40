#include <fstream>

#include <gtest/gtest.h>

#include "CUtil.h"
#include "LocalAgent.h"
#include "TestPaths.h"

// Who may do what, as the real agent decides it over real TLS.

namespace {

using protocol::FrameType;

struct Request {
    FrameType type;
    std::uint8_t flags;
};

const Request kRequests[] = {
    {FrameType::kMac, 0},
    {FrameType::kExists, 0},
    {FrameType::kGet, 0},
    {FrameType::kPut, 0},
    {FrameType::kExec, 0},
    {FrameType::kRunPackaged, 0},
    {FrameType::kExec, protocol::kFlagUninterruptible},
    {FrameType::kRunPackaged, protocol::kFlagUninterruptible},
};

class AgentAuthorization : public testing::Test {
protected:
    AgentAuthorization() {
        std::filesystem::create_directories(agent.nodePath() + "open");
        std::ofstream(agent.nodePath() + "open/file") << "for readers";
        std::ofstream(agent.nodePath() + "secret") << "for operators";
        std::filesystem::create_symlink("../secret", agent.nodePath() + "open/link");
        setRules("observer=observer\nreader=reader " + agent.nodePath() +
                 "open\noperator=operator\nfirmware=firmware\n");
    }

    void setRules(const std::string& content) {
        std::ofstream(agent.nodePath() + "authz.cfg") << content;
        ASSERT_TRUE(reload("read anew"));
    }
    // Reads the files anew and waits for the line that says how it went.
    bool reload(const std::string& text) {
        const std::size_t before = agent.log().size();
        agent.signal(SIGHUP);
        return waitFor([&] { return agent.log().find(text, before) != std::string::npos; });
    }

    std::unique_ptr<TlsChannel> openAs(const std::string& name) {
        if (identities.count(name) == 0) {
            identities[name] = agent.pki().master(name);
        }
        TlsFiles files;
        files.certificateFile = identities[name].certificateFile;
        auto channel = TlsChannel::connect(agent.ip(), agent.port(), TlsContext::client(files),
                                           LocalAgent::soon());
        channel->receiveFrame(LocalAgent::soon());
        channel->sendFrame(protocol::encode(protocol::ShellHello()), LocalAgent::soon());
        return channel;
    }

    static protocol::Error errorOf(TlsChannel& channel) {
        protocol::Error error;
        const protocol::Frame frame = channel.receiveFrame(LocalAgent::soon());
        EXPECT_EQ(FrameType::kError, frame.header.type);
        if (frame.header.type == FrameType::kError) {
            protocol::decode(frame.body, error);
        }
        return error;
    }

    // What the agent thinks of a request with a body that is none: an allowed one is parsed, and
    // breaks the protocol; a refused one is not even parsed.
    protocol::Error errorFor(const std::string& name, const Request& request) {
        const auto channel = openAs(name);
        channel->sendFrame(
            protocol::encodeHeader({3, request.type, request.flags}) + "\x01\x02\x03",
            LocalAgent::soon());
        return errorOf(*channel);
    }

    // The content, or the error.
    std::string get(TlsChannel& channel, const std::string& path) {
        protocol::Get request;
        request.path = path;
        channel.sendFrame(protocol::encode(request), LocalAgent::soon());
        std::string content;
        for (;;) {
            const protocol::Frame frame = channel.receiveFrame(LocalAgent::soon());
            if (frame.header.type == FrameType::kError) {
                protocol::Error error;
                protocol::decode(frame.body, error);
                return std::to_string(error.code) + ": " + error.text;
            }
            if (frame.header.type == FrameType::kEnd) {
                return content;
            }
            content += frame.header.type == FrameType::kData ? frame.body : "";
        }
    }

    int check(std::string& output) const {
        return CUtil::exec_cmd(
            "KELNODE_PATH=" + agent.nodePath() + " " + KELSH_BINARY_DIR + "/bin/kelnode --check",
            &output, &output);
    }

    LocalAgent agent;
    std::map<std::string, TestPki::Identity> identities;
};

}  // namespace

TEST_F(AgentAuthorization, RequestsAreRefusedBeforeTheyAreParsed) {
    const std::map<std::string, std::size_t> allowed = {
        {"nobody", 0}, {"observer", 2}, {"reader", 3}, {"operator", 6}, {"firmware", 8}};
    for (const auto& entry : allowed) {
        for (std::size_t i = 0; i < std::size(kRequests); ++i) {
            SCOPED_TRACE(entry.first + " " + protocol::name(kRequests[i].type) + " " +
                         std::to_string(kRequests[i].flags));
            const protocol::Error error = errorFor(entry.first, kRequests[i]);
            if (i < entry.second) {
                EXPECT_EQ(protocol::kErrorProtocol, error.code) << error.text;
                continue;
            }
            const std::string role = entry.first == "nobody" ? "none" : entry.first;
            EXPECT_EQ(protocol::kErrorRefused, error.code) << error.text;
            EXPECT_NE(error.text.find("is not allowed to the certificate \"" + entry.first +
                                      "\" (role " + role + ")"),
                      std::string::npos)
                << error.text;
        }
    }
}

TEST_F(AgentAuthorization, NoRoleChangesWhatHasNoPlace) {
    for (const char* name : {"observer", "firmware"}) {
        for (const FrameType type :
             {FrameType::kAgentHello, FrameType::kOutput, FrameType::kResult, FrameType::kData,
              FrameType::kEnd, FrameType::kFileInfo, FrameType::kAnswer, FrameType::kError}) {
            EXPECT_EQ(protocol::kErrorProtocol, errorFor(name, {type, 0}).code)
                << name << " " << protocol::name(type);
        }
    }
}

TEST_F(AgentAuthorization, WhoHasNoRoleIsSentAwayAfterTheGreeting) {
    const auto channel = openAs("nobody");
    EXPECT_EQ(protocol::kErrorRefused, errorOf(*channel).code);
    EXPECT_THROW(channel->receiveFrame(LocalAgent::soon()), ChannelError);
    EXPECT_TRUE(waitFor([&] { return agent.processes("kelnode-session").empty(); }));
}

TEST_F(AgentAuthorization, ConnectionStaysUsableAfterARefusal) {
    const auto channel = openAs("observer");
    protocol::Exec exec;
    exec.commandLine = "touch " + agent.nodePath() + "ran";
    for (int i = 0; i < 3; ++i) {
        channel->sendFrame(protocol::encode(exec, 0), LocalAgent::soon());
        EXPECT_EQ(protocol::kErrorRefused, errorOf(*channel).code);
    }
    channel->sendFrame(protocol::encodeMacRequest(), LocalAgent::soon());
    EXPECT_EQ(FrameType::kAnswer, channel->receiveFrame(LocalAgent::soon()).header.type);
    EXPECT_FALSE(std::filesystem::exists(agent.nodePath() + "ran"));
}

TEST_F(AgentAuthorization, RefusedUploadLeavesNothing) {
    const auto channel = openAs("reader");
    protocol::Put put;
    put.path = agent.nodePath() + "open/new";
    put.size = 4;
    channel->sendFrame(
        protocol::encode(put) + protocol::encodeHeader({4, FrameType::kData, 0}) + "evil",
        LocalAgent::soon());
    EXPECT_EQ(protocol::kErrorRefused, errorOf(*channel).code);
    EXPECT_THROW(channel->receiveFrame(LocalAgent::soon()), ChannelError);
    EXPECT_FALSE(std::filesystem::exists(put.path));
}

TEST_F(AgentAuthorization, ReaderGetsFilesBelowItsPrefixesOnly) {
    const auto channel = openAs("reader");
    const std::string open = agent.nodePath() + "open/";
    EXPECT_EQ("for readers", get(*channel, open + "file"));
    const std::string refused = get(*channel, agent.nodePath() + "secret");
    EXPECT_NE(refused.find("not allowed to the certificate \"reader\" (role reader): outside the "
                           "path prefixes"),
              std::string::npos)
        << refused;
    for (const std::string& path :
         {open + "../secret", open + "link", std::string("/etc/passwd"), open + "file/../link"}) {
        EXPECT_EQ(0U, get(*channel, path).rfind("2: ", 0)) << path;
    }
    EXPECT_EQ(0U, get(*channel, open + "missing").rfind("4: ", 0));
    EXPECT_EQ("for readers", get(*channel, open + "file"));
}

TEST_F(AgentAuthorization, OperatorGetsEverything) {
    const auto channel = openAs("operator");
    EXPECT_EQ("for operators", get(*channel, agent.nodePath() + "secret"));
    EXPECT_EQ("for operators", get(*channel, agent.nodePath() + "open/link"));
}

TEST_F(AgentAuthorization, ReaderLearnsOfNothingOutsideItsPrefixes) {
    const auto channel = openAs("reader");
    const auto exists = [&](const std::string& path) {
        channel->sendFrame(protocol::encode(protocol::Exists{path}), LocalAgent::soon());
        const protocol::Frame frame = channel->receiveFrame(LocalAgent::soon());
        return frame.header.type == FrameType::kAnswer ? frame.body : "refused";
    };
    const std::string open = agent.nodePath() + "open/";
    EXPECT_NE("refused", exists(open + "file"));
    EXPECT_NE("refused", exists(open + "missing"));
    EXPECT_EQ("refused", exists(agent.nodePath() + "secret"));
    EXPECT_EQ("refused", exists(agent.nodePath() + "missing"));
    EXPECT_EQ("refused", exists(open + "link"));
    EXPECT_EQ("refused", exists("/etc/shadow"));
    EXPECT_TRUE(agent.waitForLog("refused: EXISTS ")) << agent.log();
}

// The attack: whoever may write beside the prefix puts a link in its place.
TEST_F(AgentAuthorization, PrefixThatIsReplacedAfterStartLeadsNowhereElse) {
    const std::string open = agent.nodePath() + "open";
    std::filesystem::rename(open, agent.nodePath() + "moved");
    std::filesystem::create_directory_symlink("/etc", open);
    const auto channel = openAs("reader");
    EXPECT_EQ(0U, get(*channel, open + "/passwd").rfind("4: ", 0));
    EXPECT_EQ("for readers", get(*channel, open + "/file"));
}

TEST_F(AgentAuthorization, ReloadTakesNewRulesAndCutsOffWhoLosesRights) {
    const auto loses = openAs("operator");
    const auto keeps = openAs("observer");
    get(*loses, agent.nodePath() + "secret");
    keeps->sendFrame(protocol::encodeMacRequest(), LocalAgent::soon());
    keeps->receiveFrame(LocalAgent::soon());
    setRules("observer=firmware\noperator=observer\n");
    EXPECT_THROW(loses->receiveFrame(TlsChannel::after(1000)), ChannelError);
    EXPECT_NE(agent.log().find("has fewer rights than before"), std::string::npos) << agent.log();
    keeps->sendFrame(protocol::encodeMacRequest(), LocalAgent::soon());
    EXPECT_EQ(FrameType::kAnswer, keeps->receiveFrame(LocalAgent::soon()).header.type);
    EXPECT_EQ(protocol::kErrorRefused, errorFor("operator", {FrameType::kExec, 0}).code);
    EXPECT_EQ(protocol::kErrorProtocol, errorFor("observer", {FrameType::kExec, 0}).code);
}

TEST_F(AgentAuthorization, BrokenRulesLeaveTheOldInForce) {
    std::ofstream(agent.nodePath() + "authz.cfg") << "nobody=firmware\nobserver=king\n";
    ASSERT_TRUE(reload("the old configuration stays in force"));
    EXPECT_NE(agent.log().find("authz.cfg, line 2: observer: \\\"king\\\" is not a role"),
              std::string::npos)
        << agent.log();
    EXPECT_EQ(protocol::kErrorRefused, errorFor("nobody", {FrameType::kMac, 0}).code);
    EXPECT_EQ(protocol::kErrorProtocol, errorFor("observer", {FrameType::kMac, 0}).code);
}

TEST_F(AgentAuthorization, CheckValidatesTheRules) {
    std::string output;
    EXPECT_EQ(0, check(output)) << output;
    std::ofstream(agent.nodePath() + "authz.cfg") << "observer=king\n";
    EXPECT_NE(check(output), 0);
    EXPECT_NE(output.find("authz.cfg, line 1: observer: "), std::string::npos) << output;
    std::ofstream(agent.nodePath() + "authz.cfg") << "observer=observer\n";
    std::filesystem::permissions(agent.nodePath() + "authz.cfg", std::filesystem::perms(0666));
    EXPECT_NE(check(output), 0);
    EXPECT_NE(output.find("can be written by others"), std::string::npos) << output;
    std::filesystem::remove(agent.nodePath() + "authz.cfg");
    EXPECT_EQ(0, check(output));
    EXPECT_NE(output.find("every master of the cluster may do everything"), std::string::npos);
}
