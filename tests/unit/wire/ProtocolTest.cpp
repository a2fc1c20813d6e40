#include <gtest/gtest.h>

#include "Protocol.h"

namespace {

using namespace protocol;

const unsigned char* bytesOf(const std::string& text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

FrameHeader headerOf(const std::string& frame) {
    return decodeHeader(bytesOf(frame));
}

std::string bodyOf(const std::string& frame) {
    return frame.substr(kHeaderBytes);
}

// Every body must be refused when it is cut anywhere and when a byte follows it.
template <typename Body>
void expectExact(const std::string& frame) {
    const std::string body = bodyOf(frame);
    Body decoded;
    EXPECT_NO_THROW(decode(body, decoded));
    for (std::size_t length = 0; length < body.size(); ++length) {
        EXPECT_THROW(decode(body.substr(0, length), decoded), ProtocolError) << length;
    }
    EXPECT_THROW(decode(body + "x", decoded), ProtocolError);
    EXPECT_EQ(headerOf(frame).length, body.size());
}

}  // namespace

TEST(Protocol, HeaderIsBigEndianAndEightBytes) {
    FrameHeader header;
    header.length = 0x00012345;
    header.type = FrameType::kExec;
    header.flags = kFlagUninterruptible;
    const std::string bytes = encodeHeader(header);
    EXPECT_EQ(std::string("\x00\x01\x23\x45\x10\x01\x00\x00", 8), bytes);
    const FrameHeader back = headerOf(bytes);
    EXPECT_EQ(header.length, back.length);
    EXPECT_EQ(header.type, back.type);
    EXPECT_EQ(header.flags, back.flags);
}

TEST(Protocol, HeaderMustBeKnownShortAndPlain) {
    EXPECT_NO_THROW(headerOf(std::string("\x00\x04\x00\x00\x20\x00\x00\x00", 8)));
    EXPECT_THROW(headerOf(std::string("\x00\x04\x00\x01\x20\x00\x00\x00", 8)), ProtocolError);
    EXPECT_THROW(headerOf(std::string("\xff\xff\xff\xff\x20\x00\x00\x00", 8)), ProtocolError);
    EXPECT_THROW(headerOf(std::string("\x00\x00\x00\x00\x00\x00\x00\x00", 8)), ProtocolError);
    EXPECT_THROW(headerOf(std::string("\x00\x00\x00\x00\x30\x00\x00\x00", 8)), ProtocolError);
    EXPECT_THROW(headerOf(std::string("\x00\x00\x00\x00\x20\x01\x00\x00", 8)), ProtocolError);
    EXPECT_THROW(headerOf(std::string("\x00\x00\x00\x00\x10\x02\x00\x00", 8)), ProtocolError);
    EXPECT_THROW(headerOf(std::string("\x00\x00\x00\x00\x20\x00\x01\x00", 8)), ProtocolError);
    EXPECT_THROW(headerOf(std::string("\x00\x00\x00\x00\x20\x00\x00\x01", 8)), ProtocolError);
    EXPECT_THROW(headerOf("HTTP/1.1"), ProtocolError);
}

TEST(Protocol, HellosSurviveTheWire) {
    AgentHello agent;
    agent.lowestVersion = 1;
    agent.highestVersion = 3;
    agent.build = "1.0";
    agent.nodeName = "node_0001";
    AgentHello agentBack;
    decode(bodyOf(encode(agent)), agentBack);
    EXPECT_EQ(3, agentBack.highestVersion);
    EXPECT_EQ("1.0", agentBack.build);
    EXPECT_EQ("node_0001", agentBack.nodeName);
    expectExact<AgentHello>(encode(agent));

    ShellHello shell;
    shell.user = "root";
    shell.sequence = 4294967295U;
    ShellHello shellBack;
    decode(bodyOf(encode(shell)), shellBack);
    EXPECT_EQ("root", shellBack.user);
    EXPECT_EQ(4294967295U, shellBack.sequence);
    expectExact<ShellHello>(encode(shell));
}

TEST(Protocol, RequestsSurviveTheWire) {
    Exec exec;
    exec.timeOutMs = 4294967295U;
    exec.commandLine = "echo \"\xc3\xa4\"\n";
    Exec execBack;
    const std::string execFrame = encode(exec, kFlagUninterruptible);
    decode(bodyOf(execFrame), execBack);
    EXPECT_EQ(exec.timeOutMs, execBack.timeOutMs);
    EXPECT_EQ(exec.commandLine, execBack.commandLine);
    EXPECT_EQ(kFlagUninterruptible, headerOf(execFrame).flags);
    expectExact<Exec>(execFrame);

    RunPackaged run;
    run.preCommand = "insmod x;";
    run.arguments = "-a 2>&1 > /var/tmp/x";
    run.nodePath = "/opt/kelnode/";
    run.packagedFiles = {"a.enc", "b.enc"};
    run.companionFiles = {"c.ko"};
    RunPackaged runBack;
    decode(bodyOf(encode(run, 0)), runBack);
    EXPECT_EQ(run.preCommand, runBack.preCommand);
    EXPECT_EQ(run.arguments, runBack.arguments);
    EXPECT_EQ(run.nodePath, runBack.nodePath);
    EXPECT_EQ(run.packagedFiles, runBack.packagedFiles);
    EXPECT_EQ(run.companionFiles, runBack.companionFiles);
    expectExact<RunPackaged>(encode(run, 0));

    Put put;
    put.path = "/a b";
    put.size = 0x123456789abcdefULL;
    put.mode = 0755;
    Put putBack;
    decode(bodyOf(encode(put)), putBack);
    EXPECT_EQ(put.path, putBack.path);
    EXPECT_EQ(put.size, putBack.size);
    EXPECT_EQ(put.mode, putBack.mode);
    expectExact<Put>(encode(put));

    Get get;
    get.path = "/x";
    expectExact<Get>(encode(get));
    Exists exists;
    exists.path = "/y";
    expectExact<Exists>(encode(exists));
    EXPECT_EQ(0U, headerOf(encodeMacRequest()).length);
    EXPECT_EQ(FrameType::kMac, headerOf(encodeMacRequest()).type);
}

TEST(Protocol, RepliesSurviveTheWire) {
    Result result;
    result.ending = Result::Ending::kSignaled;
    result.value = -9;
    result.elapsedMs = 77;
    result.text = "text";
    Result resultBack;
    decode(bodyOf(encode(result)), resultBack);
    EXPECT_EQ(result.ending, resultBack.ending);
    EXPECT_EQ(-9, resultBack.value);
    EXPECT_EQ(77U, resultBack.elapsedMs);
    EXPECT_EQ("text", resultBack.text);
    expectExact<Result>(encode(result));

    FileInfo info;
    info.size = 5;
    info.mode = 0600;
    expectExact<FileInfo>(encode(info));
    Answer answer;
    answer.text = "1";
    expectExact<Answer>(encode(answer));
    Error error;
    error.code = kErrorFile;
    error.text = "no";
    Error errorBack;
    decode(bodyOf(encode(error)), errorBack);
    EXPECT_EQ(kErrorFile, errorBack.code);
    expectExact<Error>(encode(error));
    End end;
    end.digest = std::string(kDigestBytes, '\x80');
    End endBack;
    decode(bodyOf(encode(end)), endBack);
    EXPECT_EQ(end.digest, endBack.digest);
    expectExact<End>(encode(end));
}

TEST(Protocol, LyingLengthsAndCountsAreRefused) {
    Exec exec;
    EXPECT_THROW(decode(std::string("\0\0\0\0\xff\xff\xff\xff", 8) + "ls", exec), ProtocolError);
    RunPackaged run;
    std::string body = bodyOf(encode(run, 0));
    body[body.size() - 8] = '\x7f';  // the count of packaged files
    EXPECT_THROW(decode(body, run), ProtocolError);
}

TEST(Protocol, UnknownEndingsAndReversedVersionsAreRefused) {
    Result result;
    std::string body = bodyOf(encode(result));
    body[0] = 4;
    EXPECT_THROW(decode(body, result), ProtocolError);
    AgentHello hello;
    hello.lowestVersion = 3;
    hello.highestVersion = 2;
    EXPECT_THROW(decode(bodyOf(encode(hello)), hello), ProtocolError);
}

TEST(Protocol, NulBytesNeverReachTheOperatingSystem) {
    Exec exec;
    exec.commandLine = std::string("ls\0rm", 5);
    EXPECT_THROW(encode(exec, 0), ProtocolError);
    Put put;
    put.path = std::string("/a\0b", 4);
    EXPECT_THROW(encode(put), ProtocolError);
    put.path = "/axb";
    std::string body = bodyOf(encode(put));
    body[body.find('x')] = '\0';
    EXPECT_THROW(decode(body, put), ProtocolError);
}

TEST(Protocol, ARequestThatDoesNotFitAFrameIsRefused) {
    Exec exec;
    exec.commandLine.assign(kMaxBodyBytes - 8, 'x');
    EXPECT_EQ(kMaxBodyBytes, headerOf(encode(exec, 0)).length);
    exec.commandLine += 'x';
    EXPECT_THROW(encode(exec, 0), ProtocolError);
    End end;
    end.digest = "short";
    EXPECT_THROW(encode(end), ProtocolError);
}

TEST(Protocol, TheHighestCommonVersionWins) {
    AgentHello agent;
    EXPECT_EQ(kHighestVersion, commonVersion(agent));
    agent.highestVersion = kHighestVersion + 5;
    EXPECT_EQ(kHighestVersion, commonVersion(agent));
    agent.lowestVersion = kHighestVersion + 1;
    EXPECT_EQ(0, commonVersion(agent));
    agent.lowestVersion = 0;
    agent.highestVersion = 0;
    EXPECT_EQ(0, commonVersion(agent));
}

TEST(Protocol, NamesTypesForLogs) {
    EXPECT_STREQ("EXEC", name(FrameType::kExec));
    EXPECT_STREQ("FILE_INFO", name(FrameType::kFileInfo));
    EXPECT_STREQ("unknown", name(static_cast<FrameType>(0x99)));
}
