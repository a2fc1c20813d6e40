#include <chrono>
#include <csignal>
#include <fstream>
#include <string>
#include <sys/time.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "CUtil.h"
#include "TempDir.h"
#include "UniqueFd.h"

namespace {

using Tokens = std::list<std::string>;

template <typename Function>
std::string changed(std::string text, Function function) {
    function(text);
    return text;
}

std::string trimmed(const std::string& text) {
    return changed(text, [](std::string& t) { CUtil::trim(t); });
}

std::string collapsed(const std::string& text) {
    return changed(text, [](std::string& t) { CUtil::trimTwoSpace(t); });
}

std::string neat(const std::string& text) {
    return changed(text, [](std::string& t) { CUtil::makeNeatString(&t); });
}

std::string withoutNewline(const std::string& text) {
    return changed(text, [](std::string& t) { CUtil::removeTailNewline(&t); });
}

std::string withoutQuestionMark(const std::string& text) {
    return changed(text, [](std::string& t) { CUtil::removeTailQuestionMark(&t); });
}

}  // namespace

TEST(CUtil, TrimRemovesWhiteSpaceAtBothEndsOnly) {
    EXPECT_EQ("a  b", trimmed(" \t\r\n\v\fa  b \n"));
    EXPECT_EQ("", trimmed(" \t "));
    EXPECT_EQ("", trimmed(""));
    EXPECT_EQ("x", trimmed("x"));
    EXPECT_EQ("a\nb", trimmed("a\nb\n"));
}

TEST(CUtil, TrimTwoSpaceCollapsesRunsOfBlanksOnly) {
    EXPECT_EQ(" a b ", collapsed("   a  b  "));
    EXPECT_EQ("a\t\tb", collapsed("a\t\tb"));
    EXPECT_EQ("\t a\n\n", collapsed("\t a\n\n"));
    EXPECT_EQ("", collapsed(""));
}

TEST(CUtil, RemoveTailNewlineRemovesAllAtTheEnd) {
    EXPECT_EQ("a\nb", withoutNewline("a\nb\n\n"));
    EXPECT_EQ("a ", withoutNewline("a \n"));
    EXPECT_EQ("", withoutNewline("\n"));
    EXPECT_EQ("", withoutNewline(""));
    CUtil::removeTailNewline(nullptr);
}

TEST(CUtil, RemoveTailQuestionMarkRemovesOne) {
    EXPECT_EQ("list ?", withoutQuestionMark("list ??"));
    EXPECT_EQ("a?b", withoutQuestionMark("a?b"));
    EXPECT_EQ("a? ", withoutQuestionMark("a? "));
    EXPECT_EQ("", withoutQuestionMark("?"));
    EXPECT_EQ("", withoutQuestionMark(""));
    CUtil::removeTailQuestionMark(nullptr);
}

TEST(CUtil, MakeNeatStringLeavesOneBlankBetweenWords) {
    EXPECT_EQ("list node", neat("\t list \n  node "));
    EXPECT_EQ("", neat("  "));
    EXPECT_EQ("a", neat("a"));
    EXPECT_EQ("a b", neat("a\nb\n"));
    EXPECT_EQ("what?", neat("what?"));
    CUtil::makeNeatString(nullptr);
}

TEST(CUtil, CaseConversionTouchesAsciiLettersOnly) {
    std::string text = "aZ9\xc3\xa4[`{@";
    CUtil::toUpper(text);
    EXPECT_EQ("AZ9\xc3\xa4[`{@", text);
    CUtil::toLower(text);
    EXPECT_EQ("az9\xc3\xa4[`{@", text);
}

TEST(CUtil, SplitForTokensDropsEmptyTokens) {
    EXPECT_EQ((Tokens{"a", "b", "c"}), CUtil::splitForTokens("  a b;;c;", " ;"));
    EXPECT_EQ((Tokens{"a", "b"}), CUtil::splitForTokens(",a,,b,", ","));
    EXPECT_EQ(Tokens{"a\tb"}, CUtil::splitForTokens("a\tb", " "));
    EXPECT_EQ(Tokens{}, CUtil::splitForTokens("", " "));
    EXPECT_EQ(Tokens{}, CUtil::splitForTokens("   ", " "));
    EXPECT_EQ(Tokens{"a b"}, CUtil::splitForTokens("a b", ""));
}

TEST(CUtil, SplitForTokensKeepsQuotedStretchesWhole) {
    EXPECT_EQ((Tokens{"-f", "my file", "x"}), CUtil::splitForTokens("-f \"my file\" x", " "));
    EXPECT_EQ(Tokens{"ab cd"}, CUtil::splitForTokens("a\"b c\"d", " "));
    EXPECT_EQ(Tokens{"x"}, CUtil::splitForTokens("\"\" x", " "));
    EXPECT_EQ((Tokens{"a,b", "c"}), CUtil::splitForTokens("\"a,b\",c", ","));
    EXPECT_EQ((Tokens{"say", "\"hi", "there"}), CUtil::splitForTokens("say \"hi there", " "));
}

TEST(CUtil, SplitForTokensAppendsInItsOtherForm) {
    Tokens tokens{"first"};
    CUtil::splitForTokens(tokens, ",", "a,b");
    EXPECT_EQ(tokens, (Tokens{"first", "a", "b"}));
}

TEST(CUtil, ExecCmdCapturesStandardOutputWithItsNewline) {
    std::string output = "old";
    EXPECT_EQ(0, CUtil::exec_cmd("echo hello", &output));
    EXPECT_EQ("hello\n", output);
    EXPECT_EQ(7, CUtil::exec_cmd("exit 7", &output));
    EXPECT_EQ("", output);
    EXPECT_EQ(7, CUtil::exec_cmd("printf x; exit 7", &output));
    EXPECT_EQ("x", output);
    EXPECT_EQ(0, CUtil::exec_cmd("echo one; echo two", &output));
    EXPECT_EQ("one\ntwo\n", output);
    EXPECT_EQ(0, CUtil::exec_cmd("printf '%s' \"a|b\" | tr a c", &output));
    EXPECT_EQ("c|b", output);
    EXPECT_EQ(0, CUtil::exec_cmd("echo dropped", nullptr));
    EXPECT_EQ(128 + SIGTERM, CUtil::exec_cmd("kill -TERM $$", &output));
}

TEST(CUtil, ExecCmdKeepsStreamsApartOrMergesThem) {
    std::string output;
    std::string errors;
    EXPECT_EQ(0, CUtil::exec_cmd("echo o; echo e >&2", &output, &errors));
    EXPECT_EQ("o\n", output);
    EXPECT_EQ("e\n", errors);
    EXPECT_EQ(0, CUtil::exec_cmd("echo o; echo e >&2", &output, &output));
    EXPECT_EQ("o\ne\n", output);
}

TEST(CUtil, ExecCmdOutlivesAStormOfSignals) {
    struct sigaction handler {};
    struct sigaction old {};
    handler.sa_handler = [](int) {};
    ASSERT_EQ(0, sigaction(SIGALRM, &handler, &old));
    const itimerval storm{{0, 1000}, {0, 1000}};
    const itimerval calm{};
    ASSERT_EQ(0, setitimer(ITIMER_REAL, &storm, nullptr));
    std::string output;
    const int code = CUtil::exec_cmd("sleep 0.2; echo done", &output);
    const auto before = std::chrono::steady_clock::now();
    CUtil::sleep(50);
    const auto slept = std::chrono::steady_clock::now() - before;
    ASSERT_EQ(0, setitimer(ITIMER_REAL, &calm, nullptr));
    ASSERT_EQ(0, sigaction(SIGALRM, &old, nullptr));
    EXPECT_EQ(0, code);
    EXPECT_EQ("done\n", output);
    EXPECT_GE(slept, std::chrono::milliseconds(50));
}

TEST(CUtil, DataIsAvailableWhenAReadWouldNotBlock) {
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    const UniqueFd readEnd(ends[0]);
    UniqueFd writeEnd(ends[1]);
    EXPECT_FALSE(CUtil::isDataAvailable(readEnd.get()));
    ASSERT_EQ(1, write(writeEnd.get(), "x", 1));
    EXPECT_TRUE(CUtil::isDataAvailable(readEnd.get()));
    char byte = 0;
    ASSERT_EQ(1, read(readEnd.get(), &byte, 1));
    EXPECT_FALSE(CUtil::isDataAvailable(readEnd.get()));
    writeEnd.reset();
    EXPECT_TRUE(CUtil::isDataAvailable(readEnd.get()));
    EXPECT_FALSE(CUtil::isDataAvailable(-1));
}

TEST(CUtil, FileExistsWhateverItsKind) {
    const TempDir directory;
    EXPECT_TRUE(CUtil::isFileExisted(directory.path()));
    EXPECT_FALSE(CUtil::isFileExisted(directory.file("no")));
    std::ofstream(directory.file("yes")) << "x";
    EXPECT_TRUE(CUtil::isFileExisted(directory.file("yes")));
    EXPECT_FALSE(CUtil::isFileExisted(""));
}

TEST(CUtil, DateTimeStringIsFitForAFileName) {
    const std::string text = CUtil::getDateTimeString2();
    ASSERT_EQ(15U, text.size());
    EXPECT_EQ('_', text[8]);
    EXPECT_EQ(std::string::npos, text.find_first_not_of("0123456789_"));
    EXPECT_EQ("20", text.substr(0, 2));
}

TEST(CUtilValidators, Ipv4) {
    for (const char* good : {"0.0.0.0", "10.1.2.3", "255.255.255.255"}) {
        EXPECT_TRUE(CUtil::validateIPAddrFormat(good, 4)) << good;
        EXPECT_TRUE(CUtil::validateIPAddrFormat(good, 0)) << good;
    }
    for (const char* bad :
         {"", "1.2.3", "1.2.3.4.5", "256.1.1.1", "01.2.3.4", "1.2.3.04", "1..2.3", "1.2.3.4 ",
          " 1.2.3.4", "a.b.c.d", "1.2.3.-4", "0x1.2.3.4", "::1", "1.2.3.4/24"}) {
        EXPECT_FALSE(CUtil::validateIPAddrFormat(bad, 4)) << bad;
    }
    EXPECT_FALSE(CUtil::validateIPAddrFormat(std::string("1.2.3.4\0x", 9), 4));
}

TEST(CUtilValidators, Ipv6) {
    for (const char* good : {"::", "::1", "fe80::1", "1:2:3:4:5:6:7:8", "::ffff:1.2.3.4"}) {
        EXPECT_TRUE(CUtil::validateIPAddrFormat(good, 6)) << good;
    }
    for (const char* bad :
         {"", ":", "1::2::3", "1:2:3:4:5:6:7", "12345::", "g::1", "fe80::1%eth0", "1.2.3.4"}) {
        EXPECT_FALSE(CUtil::validateIPAddrFormat(bad, 6)) << bad;
    }
}

TEST(CUtilValidators, Mac) {
    EXPECT_TRUE(CUtil::validateMACaddr("00:1A:2b:3C:4d:5E", ":"));
    EXPECT_TRUE(CUtil::validateMACaddr("00-1A-2b-3C-4d-5E", "-"));
    EXPECT_TRUE(CUtil::validateMACaddr("001A2b3C4d5E", ""));
    for (const char* bad : {"", "00:1A:2B:3C:4D", "00:1A:2B:3C:4D:5E:6F", "00:1A:2B:3C:4D:5G",
                            "00-1A-2B-3C-4D-5E", "0:1A:2B:3C:4D:5E", "00:1A:2B:3C:4D:5E:",
                            " 00:1A:2B:3C:4D:5E", "00:1A:2B:3C:4D:5", "001A2B3C4D5E"}) {
        EXPECT_FALSE(CUtil::validateMACaddr(bad, ":")) << bad;
    }
}

TEST(CUtilValidators, HostName) {
    const std::string label(63, 'a');
    const std::string longest = label + "." + label + "." + label + "." + std::string(61, 'b');
    ASSERT_EQ(253U, longest.size());
    for (const std::string& good : {std::string("node1"), std::string("NODE-1.Example.com"),
                                    std::string("1"), std::string("0day"), label, longest}) {
        EXPECT_TRUE(CUtil::validateHostnameFormat(good)) << good;
    }
    for (const std::string& bad :
         {std::string(), std::string("-a"), std::string("a-"), std::string("a..b"),
          std::string(".a"), std::string("a."), std::string("a b"), std::string("a_b"), label + "a",
          longest + "b",
          std::string("n\xc3\xb6"
                      "de"),
          std::string("a;b"), std::string("a\n"), std::string("a\0b", 3), std::string("a.-b")}) {
        EXPECT_FALSE(CUtil::validateHostnameFormat(bad)) << bad;
    }
}

TEST(CUtilValidators, HostNameRange) {
    for (const char* good : {"node1", "node[01-16,20]", "node[1-9].example.com", "a,b,c[1]",
                             "[1-3]", "node[1-1000000]", "node[7]-ipmi", "x[9-10]"}) {
        EXPECT_TRUE(CUtil::validateHostnameRangeFormat(good)) << good;
    }
    for (const char* bad : {"",           "node[",
                            "node]",      "node[]",
                            "node[1-]",   "node[-3]",
                            "node[3-1]",  "node[1-2-3]",
                            "node[1,,2]", "node[1-2",
                            "node1-2]",   "node[[1]]",
                            "node[a-c]",  "a,,b",
                            "a,",         ",a",
                            "node[1 2]",  "node[1];reboot",
                            "n[1][2]",    "-[1]",
                            "node[1]-",   "node[1-9999999999]",
                            "node[1 - 2]"}) {
        EXPECT_FALSE(CUtil::validateHostnameRangeFormat(bad)) << bad;
    }
    EXPECT_FALSE(CUtil::validateHostnameRangeFormat(std::string(61, 'a') + "[100]"));
    EXPECT_TRUE(CUtil::validateHostnameRangeFormat(std::string(60, 'a') + "[100]"));
}

TEST(CUtil, RunsCommandsOnManyThreadsAtOnce) {
    std::vector<std::string> outputs(8);
    std::vector<std::thread> threads;
    for (std::size_t at = 0; at < outputs.size(); ++at) {
        threads.emplace_back(
            [&outputs, at] { CUtil::exec_cmd("echo " + std::to_string(at), &outputs[at]); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (std::size_t at = 0; at < outputs.size(); ++at) {
        EXPECT_EQ(outputs[at], std::to_string(at) + "\n");
    }
}
