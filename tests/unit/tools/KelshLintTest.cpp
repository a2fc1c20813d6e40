#include <fstream>
#include <string>
#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CUtil.h"
#include "TempDir.h"
#include "TestPaths.h"
#include "TestPki.h"

using testing::HasSubstr;
using testing::Not;

namespace {

constexpr int kClean = 0;
constexpr int kWarnings = 1;
constexpr int kErrors = 2;

// Drives the program itself, in a directory with configuration files.
class KelshLint : public testing::Test {
protected:
    void write(const std::string& name, const std::string& text) {
        std::ofstream(directory.file(name)) << text;
    }

    int run(const std::string& arguments) {
        output.clear();
        return CUtil::exec_cmd("cd " + directory.path() +
                                   " && " KELSH_BINARY_DIR "/bin/kelsh-lint " + arguments +
                                   " </dev/null",
                               &output, &output);
    }

    int node(const std::string& text) {
        write("node.cfg", text);
        return run("--node node.cfg");
    }
    int cmd(const std::string& text) {
        write("cmd.cfg", text);
        return run("--cmd cmd.cfg");
    }
    int ssl(const std::string& certificateFile, const std::string& keyFile) {
        write("ssl.cfg",
              "# x\nPRIVATE_KEY_FILE=" + keyFile + "\nCERTIFICATE_FILE=" + certificateFile + "\n");
        return run("--ssl ssl.cfg");
    }
    TestPki::Identity issue(const TestPki::Request& request) {
        const TestPki::Identity identity = pki.issue("id", request);
        EXPECT_EQ(0, ::chmod(identity.keyFile.c_str(), 0600));
        return identity;
    }

    TempDir directory;
    TestPki pki{directory.file("pki")};
    std::string output;
};

constexpr char kNodes[] =
    "[node]\nnode01=02:00:00:AA:BB:01,192.168.10.1:4422\n"
    "node02=02:00:00:AA:BB:02,192.168.10.2:4422\n";
constexpr char kSet[] = "[cmdset]\nname=s\ndescription=d\n";
constexpr char kCommand[] =
    "[cmd]\nname=c\ndescription=d\ntype=SCRIPT\ndestination=SLAVE\ncmd=true\n";

}  // namespace

TEST_F(KelshLint, FindsNothingInSoundFilesAndAsksNoNode) {
    EXPECT_EQ(kClean, node(std::string(kNodes) + "[group]\nall=node01,node02\n"));
    EXPECT_EQ("", output);
    EXPECT_EQ(kClean, cmd(std::string(kSet) + kCommand));
    EXPECT_EQ("", output);
}

TEST_F(KelshLint, NamesFilesThatOthersCouldChangeAndTheRemedy) {
    write("cmd.cfg", std::string(kSet) + kCommand);
    const std::string file = directory.file("cmd.cfg");
    EXPECT_EQ(0, ::chmod(file.c_str(), 0666));
    EXPECT_EQ(kWarnings, run("--cmd cmd.cfg"));
    EXPECT_EQ("cmd.cfg: warning: " + file + " can be written by others (mode 0666): chmod go-w " +
                  file + "\n",
              output);
    EXPECT_EQ(0, ::chmod(file.c_str(), 0644));
    EXPECT_EQ(0, ::chmod(directory.path().c_str(), 0770));
    EXPECT_EQ(kWarnings, run("--cmd cmd.cfg"));
    EXPECT_THAT(output, HasSubstr("chmod go-w " + directory.path() + "\n"));
    EXPECT_EQ(0, ::chmod(directory.path().c_str(), 0700));
    TestPki::Request request;
    request.notAfterSeconds = 365L * 24 * 3600;
    const TestPki::Identity identity = issue(request);
    EXPECT_EQ(0, ::chmod(identity.certificateFile.c_str(), 0664));
    EXPECT_EQ(kWarnings, ssl(identity.certificateFile, identity.keyFile));
    EXPECT_THAT(output, HasSubstr("ssl.cfg:3: warning: " + identity.certificateFile + " can be"));
}

TEST_F(KelshLint, NamesOptionsThatTheCommandKeepsFromTheShell) {
    EXPECT_EQ(kWarnings, cmd(std::string(kSet) +
                             "[cmd]\nname=c\ndescription=d\ntype=SCRIPT_OPT\n"
                             "destination=SLAVE\ncmd=true\noption=[-f|--fold|00]Its own.\n"));
    EXPECT_THAT(output, HasSubstr("--fold stays the command's"));
}

TEST_F(KelshLint, NamesASetThatHidesAWordOfTheShell) {
    EXPECT_EQ(kWarnings, cmd(std::string("[cmdset]\nname=run\ndescription=d\n") + kCommand));
    EXPECT_EQ(
        "cmd.cfg:2: warning: the set hides \"run\" of the modern interface, which is /run then\n",
        output);
}

TEST_F(KelshLint, ChecksTheFileOfTheInterface) {
    const auto interface = [&](const std::string& text, mode_t mode = 0644) {
        write("kelsh.cfg", text);
        EXPECT_EQ(0, ::chmod(directory.file("kelsh.cfg").c_str(), mode));
        return run("--kelsh kelsh.cfg");
    };
    EXPECT_EQ(kClean, interface("# modern\nINTERFACE=modern\nFOLD=never\n"));
    EXPECT_EQ("", output);
    EXPECT_EQ(kWarnings, interface("COLOUR=blue\nFOLD=never\nfold=auto\n"));
    EXPECT_EQ(
        "kelsh.cfg:1: warning: unknown key \"COLOUR\"\n"
        "kelsh.cfg:3: warning: FOLD stands in line 2 already; this one counts\n",
        output);
    EXPECT_EQ(kErrors, interface("\nINTERFACE=new\n"));
    EXPECT_EQ("kelsh.cfg:2: error: INTERFACE cannot be \"new\". Its values are: classic, modern\n",
              output);
    EXPECT_EQ(kErrors, interface("INTERFACE=modern\n", 0666));
    EXPECT_THAT(output, HasSubstr("can be written by others"));
    EXPECT_EQ(kErrors, run("."));
    EXPECT_THAT(output, HasSubstr("./kelsh.cfg: error: "));
}

TEST_F(KelshLint, ChecksTheThreeFilesOfADirectory) {
    write("node.cfg", kNodes);
    EXPECT_EQ(kErrors, run("."));
    EXPECT_EQ("./ssl_master.cfg: error: cannot be opened: No such file or directory\n", output);
    write("cmd.cfg", "stray\n");
    EXPECT_EQ(kErrors, run("."));
    EXPECT_THAT(output, HasSubstr("./cmd.cfg:1: warning: \"stray\" is not KEY=VALUE"));
}

TEST_F(KelshLint, TheSamplesOfThePackagesHaveNoErrors) {
    EXPECT_EQ(kClean, run("--cmd " KELSH_SOURCE_DIR "/packaging/cmd.cfg")) << output;
    EXPECT_EQ(kWarnings, run("--node " KELSH_SOURCE_DIR "/packaging/node.cfg"));
    EXPECT_THAT(output, HasSubstr("node.cfg: warning: defines no node\n"));
}

TEST_F(KelshLint, ReportsBlanksBesideNamesAndAddresses) {
    EXPECT_EQ(kErrors, node(std::string(kNodes) + "[group]\nall= node01\n"));
    EXPECT_THAT(output, HasSubstr("node.cfg:5: warning: a blank belongs to the name"));
    EXPECT_THAT(output, HasSubstr("node.cfg:5: error: \" node01\" is not defined"));
}

TEST_F(KelshLint, ReportsUndefinedMembersAndEmptyOrRepeatedGroups) {
    EXPECT_EQ(kErrors, node(std::string(kNodes) + "[group]\na=node03\nb=\nb=node01\n"));
    EXPECT_THAT(output, HasSubstr("node.cfg:5: error: \"node03\" is not defined for group \"a\"."));
    EXPECT_THAT(output, HasSubstr("node.cfg:6: warning: the group has no members"));
    EXPECT_THAT(output, HasSubstr("node.cfg:7: warning: the group \"b\" stands in line 6 already"));
}

TEST_F(KelshLint, ReportsAddressesThatAreNoneOrTwice) {
    EXPECT_EQ(kWarnings,
              node("[node]\na=02:00:00:AA:BB,10.0.0.256:0\nb=02:00:00:aa:bb:01,10.0.0.1:1x\n"
                   "c=02:00:00:AA:BB:01,10.0.0.2:1\nd=02:00:00:AA:BB:02,10.0.0.2:1\n"));
    EXPECT_THAT(output, HasSubstr("node.cfg:2: warning: \"02:00:00:AA:BB\" is no MAC address"));
    EXPECT_THAT(output, HasSubstr("node.cfg:2: warning: \"10.0.0.256\" is no IPv4 address"));
    EXPECT_THAT(output, HasSubstr("node.cfg:2: warning: \"0\" is no port"));
    EXPECT_THAT(output, HasSubstr("node.cfg:3: warning: \"1x\" is no port"));
    EXPECT_THAT(output, HasSubstr("node.cfg:4: warning: the MAC address \"02:00:00:AA:BB:01\""));
    EXPECT_THAT(output, HasSubstr("node.cfg:5: warning: the address \"10.0.0.2:1\" stands in"));
}

TEST_F(KelshLint, CountsLinesAsAnEditorDoesBehindALongOne) {
    EXPECT_EQ(kErrors, node(std::string(kNodes) + "#" + std::string(510, 'x') + "\n#" +
                            std::string(1100, 'y') + "\nbroken\n"));
    EXPECT_THAT(output, HasSubstr("node.cfg:5: warning: the line is longer than 511 bytes"));
    EXPECT_THAT(output, Not(HasSubstr("node.cfg:4:")));
    EXPECT_THAT(output, HasSubstr("node.cfg:6: error: Invalid format: broken"));
}

TEST_F(KelshLint, ReportsCarriageReturnsOnce) {
    EXPECT_EQ(kWarnings, cmd("[cmdset]\r\nname=s\r\n"));
    EXPECT_THAT(output, HasSubstr("cmd.cfg:1: warning: the line ends in a carriage return"));
    EXPECT_THAT(output, Not(HasSubstr("cmd.cfg:2: warning: the line ends")));
}

TEST_F(KelshLint, ReportsLinesThatTheShellIgnores) {
    EXPECT_EQ(kWarnings,
              cmd("stray=1\n" + std::string(kSet) + "timeout = 5000\nexample=x\n[cmd ]\n" +
                  kCommand + "timeuot=1\nno setting\n"));
    EXPECT_THAT(output, HasSubstr("cmd.cfg:1: warning: stands before the first [cmdset]"));
    EXPECT_THAT(output, HasSubstr("cmd.cfg:5: warning: blanks around \"=\": the line is ignored"));
    EXPECT_THAT(output, HasSubstr("cmd.cfg:6: warning: unknown key \"example\""));
    EXPECT_THAT(output, HasSubstr("cmd.cfg:7: warning: \"[cmd ]\" is neither [cmdset] nor [cmd]"));
    EXPECT_THAT(output, HasSubstr("cmd.cfg:14: warning: unknown key \"timeuot\""));
    EXPECT_THAT(output, HasSubstr("cmd.cfg:15: warning: \"no setting\" is not KEY=VALUE"));
}

TEST_F(KelshLint, ReportsTimeOutsThatLookLikeSeconds) {
    for (const char* good : {"1000", "0", "900000"}) {
        EXPECT_EQ(kClean, cmd(std::string(kSet) + kCommand + "timeout=" + good + "\n")) << good;
    }
    EXPECT_EQ(kWarnings, cmd(std::string(kSet) + "timeout=30\n" + kCommand + "timeout=999\n"));
    EXPECT_THAT(output, HasSubstr("cmd.cfg:4: warning: timeout is 30 milliseconds"));
    EXPECT_THAT(output, HasSubstr("cmd.cfg:11: warning: timeout is 999 milliseconds"));
    EXPECT_EQ(kWarnings, cmd(std::string(kSet) + kCommand + "timeout=12s\n"));
    EXPECT_THAT(output, HasSubstr("timeout \"12s\" is taken as 12 milliseconds"));
    EXPECT_EQ(kWarnings, cmd(std::string(kSet) + kCommand + "timeout=4294967296\n"));
    EXPECT_THAT(output, HasSubstr("timeout \"4294967296\" is taken as the longest, 4294967295 m"));
    EXPECT_EQ(kClean, cmd(std::string(kSet) + kCommand + "timeout=4294967295\n"));
    EXPECT_EQ(kErrors, cmd(std::string(kSet) + kCommand + "timeout=-5\n"));
    EXPECT_THAT(output, HasSubstr("error: Invalid time out: -5"));
}

TEST_F(KelshLint, ReportsQuestionsThatAreNeverAsked) {
    EXPECT_EQ(kWarnings,
              cmd(std::string(kSet) + "confirmtype=ONCE\n" + kCommand + "confirmmsg=Sure?\n"));
    EXPECT_THAT(output, HasSubstr("cmd.cfg:4: warning: no command of the set says"));
    EXPECT_THAT(output, HasSubstr("cmd.cfg:11: warning: confirmmsg without confirmtype"));
    EXPECT_EQ(kClean, cmd(std::string(kSet) + "confirmtype=ONCE\n" + kCommand +
                          "confirmtype=inheritance\n"))
        << output;
    EXPECT_EQ(kWarnings, cmd(std::string(kSet) + kCommand + "confirmtype=TWICE\n"));
    EXPECT_THAT(output, HasSubstr("confirmtype \"TWICE\" is not known and means NO"));
}

TEST_F(KelshLint, ReportsOptionsThatNeverReachTheCommand) {
    EXPECT_EQ(kWarnings, cmd(std::string(kSet) + kCommand + "option=[-t|--turbo|00]fast\n"));
    EXPECT_THAT(output, HasSubstr("cmd.cfg:10: warning: -n, -g and -t"));
    EXPECT_THAT(output, HasSubstr("cmd.cfg:10: warning: a command of type SCRIPT takes no"));
}

TEST_F(KelshLint, ReportsRepeatedKeysAndReaderErrorsWithTheirLines) {
    EXPECT_EQ(kErrors, cmd(std::string(kSet) + kCommand + "name=d\ntype=QUICK\n"));
    EXPECT_THAT(output, HasSubstr("cmd.cfg:10: warning: \"name\" stands in line 5 already"));
    EXPECT_THAT(output, HasSubstr("cmd.cfg:5: error: Invalid \"type\" for [Cmd]:QUICK"));
}

TEST_F(KelshLint, ReportsASetThatIsThereAlready) {
    EXPECT_EQ(kWarnings, cmd("[cmdset]\nname=biosfw\ndescription=d\n" + std::string(kCommand)));
    EXPECT_THAT(output, HasSubstr("cmd.cfg:2: warning: the set \"biosfw\" is built in already"));
    EXPECT_EQ(kWarnings, cmd(std::string(kSet) + kCommand + kSet + kCommand));
    EXPECT_THAT(output, HasSubstr("cmd.cfg:11: warning: the set \"s\" stands in line 2 already"));
}

TEST_F(KelshLint, ReportsCommandsThatAreNeverFound) {
    const std::string body = "description=d\ndestination=SLAVE\ncmd=x\n";
    EXPECT_EQ(kWarnings, cmd(kSet + ("[cmd]\nname=get\ntype=SCRIPT_OPT\n" + body) +
                             "[cmd]\nname=get-file\ntype=SCRIPT\n" + body));
    EXPECT_EQ(
        "cmd.cfg:11: warning: \"get-file\" is read as \"get\" (line 5) with options: it is never "
        "run\n",
        output);
    // Without options a name is compared as a whole.
    EXPECT_EQ(kClean, cmd(kSet + ("[cmd]\nname=get\ntype=SCRIPT\n" + body) +
                          "[cmd]\nname=get-file\ntype=SCRIPT_OPT\n" + body))
        << output;
    EXPECT_EQ(kClean,
              cmd(kSet + ("[cmd]\nname=get\ntype=SCRIPT_OPT\n" + body) +
                  "[cmdset]\nname=t\ndescription=d\n[cmd]\nname=get-file\ntype=SCRIPT\n" + body))
        << output;
}

TEST_F(KelshLint, ReportsACommandNamedLikeABasicOne) {
    EXPECT_EQ(kWarnings, cmd(kSet + std::string("[cmd]\nname=list  node\ntype=SCRIPT\n") +
                             "description=d\ndestination=SLAVE\ncmd=x\n"));
    EXPECT_EQ(
        "cmd.cfg:5: warning: \"list node\" is a basic command: the shell then finds no command of "
        "this set\n",
        output);
}

TEST_F(KelshLint, ReportsACommandFileThatCannotBeRead) {
    write("node.cfg", kNodes);
    ASSERT_EQ(0, ::mkdir(directory.file("cmd.cfg").c_str(), 0755));
    EXPECT_EQ(kErrors, run("."));
    EXPECT_THAT(output, HasSubstr("./cmd.cfg: error: is a directory\n"));
}

TEST_F(KelshLint, AcceptsAMastersCertificate) {
    TestPki::Request request;
    request.notAfterSeconds = 365L * 24 * 3600;
    const TestPki::Identity identity = issue(request);
    EXPECT_EQ(kClean, ssl(identity.certificateFile, identity.keyFile));
    EXPECT_EQ("", output);
}

TEST_F(KelshLint, ReportsTheDatesOfCertificates) {
    TestPki::Request request;
    request.notAfterSeconds = -10;
    TestPki::Identity identity = issue(request);
    EXPECT_EQ(kErrors, ssl(identity.certificateFile, identity.keyFile));
    EXPECT_THAT(output, HasSubstr("ssl.cfg:3: error: the certificate of test has ended on "));
    request.notAfterSeconds = 29L * 24 * 3600;
    identity = issue(request);
    EXPECT_EQ(kWarnings, ssl(identity.certificateFile, identity.keyFile));
    EXPECT_THAT(output, HasSubstr("ssl.cfg:3: warning: the certificate of test ends on "));
    request.notBeforeSeconds = 3600;
    identity = issue(request);
    EXPECT_EQ(kErrors, ssl(identity.certificateFile, identity.keyFile));
    EXPECT_THAT(output, HasSubstr("error: the certificate of test is not valid before "));
}

TEST_F(KelshLint, ReportsACertificateThatIsNoMasters) {
    const TestPki::Identity identity = pki.node("node01");
    EXPECT_EQ(0, ::chmod(identity.keyFile.c_str(), 0600));
    EXPECT_EQ(kErrors, ssl(identity.certificateFile, identity.keyFile));
    EXPECT_THAT(output, HasSubstr("certificate of node01 is not that of a master (clientAuth)"));
}

TEST_F(KelshLint, ReportsKeysThatAreOpenOrNotTheCertificates) {
    const TestPki::Identity master = pki.master("one");
    const TestPki::Identity other = pki.master("two");
    EXPECT_EQ(0, ::chmod(other.keyFile.c_str(), 0640));
    const std::string bare = directory.file("bare.crt");
    ASSERT_EQ(
        0, CUtil::exec_cmd("sed '/PRIVATE/,$d' " + master.certificateFile + " >" + bare, nullptr));
    EXPECT_EQ(kErrors, ssl(bare, other.keyFile));
    EXPECT_THAT(output, HasSubstr("ssl.cfg:2: warning: the private key " + other.keyFile));
    EXPECT_THAT(output, HasSubstr("does not belong to"));
    EXPECT_EQ(kErrors, ssl(bare, directory.file("absent")));
    EXPECT_THAT(output, HasSubstr(directory.file("absent")));
}

TEST_F(KelshLint, GivesTheSslFilesFindingsTheirLines) {
    write("ssl.cfg", "# x\nCERTIFICATE_FILE = /x\nCOLOUR=red\n=x\n");
    EXPECT_EQ(kErrors, run("--ssl ssl.cfg"));
    EXPECT_THAT(output, HasSubstr("ssl.cfg:2: error: Unknown setting for SSL configuration: "
                                  "CERTIFICATE_FILE \n"));
    EXPECT_THAT(output, HasSubstr("ssl.cfg:2: warning: blanks around \"=\""));
    EXPECT_THAT(output,
                HasSubstr("ssl.cfg:3: error: Unknown setting for SSL configuration: COLOUR\n"));
    EXPECT_THAT(output, HasSubstr("ssl.cfg:4: error: Unknown setting for SSL configuration: =x\n"));
    EXPECT_THAT(output, HasSubstr("ssl.cfg: error: CERTIFICATE_FILE names no file"));
}

TEST_F(KelshLint, RefusesWrongUsage) {
    for (const char* wrong : {"--fast", "--node", "a b", ". --node node.cfg", "''"}) {
        EXPECT_EQ(kErrors, run(wrong)) << wrong;
        EXPECT_THAT(output, HasSubstr("Usage: kelsh-lint")) << wrong;
    }
    EXPECT_EQ(kClean, run("--help"));
    EXPECT_THAT(output, HasSubstr("Usage: kelsh-lint"));
}
