#include <cerrno>
#include <csignal>
#include <filesystem>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <openssl/crypto.h>

#include "CNodeGroup.h"
#include "CShell.h"
#include "ScopedEnvironment.h"
#include "ShellFixture.h"

namespace {

using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;
using Words = std::list<std::string>;

class CShellTest : public ShellFixture {};

constexpr char kCommands[] =
    "[cmdset]\nname=tools\ndescription=Tools.\n"
    "[cmd]\nname=greet\ndescription=Says hello.\ncmd=echo hello\ntype=SCRIPT\n"
    "destination=MASTER\n"
    "[cmd]\nname=look at\ndescription=Looks.\ncmd=ls\ntype=SCRIPT_OPT\ndestination=SLAVE\n";

}  // namespace

TEST_F(CShellTest, ValidationWithoutAFileNameIsRefused) {
    const std::string message = "It needs to provide configuration file for validation.\n";
    EXPECT_EQ(2, run({"--validate"}));
    EXPECT_EQ(message, output);
    EXPECT_EQ(2, run({"list", "--validate"}));
    EXPECT_EQ(message, output);
    EXPECT_EQ(2, run({"--validate", ""}));
    EXPECT_EQ(message, output);
}

TEST_F(CShellTest, ValidationCountsNodesAndGroups) {
    put("good.cfg",
        "[node]\na=02:00:00:00:00:01,127.0.0.1:1\nb=02:00:00:00:00:02,127.0.0.1:1\n"
        "[group]\nboth=a,b\n");
    const std::string file = home.file("good.cfg");
    EXPECT_EQ(0, run({"x--validate=", file}));
    EXPECT_EQ("Configuration file " + file +
                  " is OK.\nThere are 2 node definitions.\nThere are 1 group definitions.\n",
              output);
}

TEST_F(CShellTest, ValidationPrintsEveryFindingAndCountsTheErrors) {
    put("bad.cfg", "[node]\na=02:00:00:00:00:01,127.0.0.1:1\na\n[group]\ng=nobody\n");
    const std::string file = home.file("bad.cfg");
    EXPECT_EQ(2, run({"--validate", file}));
    EXPECT_THAT(output, StartsWith("Error! Configuration file " + file + " is not OK.\n"));
    EXPECT_THAT(output, HasSubstr("Can not connect to a. (127.0.0.1:1)\n"));
    EXPECT_THAT(output, HasSubstr("Line:3, Invalid format: a\n"));
    EXPECT_THAT(output, EndsWith("Total error(s): 2\n"));
}

TEST_F(CShellTest, ValidateCollectsTheErrorsOfOneFile) {
    put("bad.cfg", "x\n");
    CShell shell;
    ConfigErrorCollector errors;
    shell.validate(&errors, home.file("bad.cfg").c_str());
    EXPECT_EQ("Line:1, Invalid line position: x\n", errors.toString());
    EXPECT_TRUE(shell.getExecutionContext().getNodeMap().empty());
}

TEST_F(CShellTest, ConfigurationNamesGetTheInstallPathInFront) {
    put("other.cfg", "[node]\nn1=02:00:00:00:00:01,127.0.0.1:1\n");
    CShell shell;
    EXPECT_EQ(0, run(shell, {"-cfg", "other.cfg", "list", "node"}));
    EXPECT_THAT(output,
                HasSubstr("n1 (MAC: 02:00:00:00:00:01, IP: 127.0.0.1, Port: 1)\nTotal: 1\n"));
    CShellExecutionContext& context = shell.getExecutionContext();
    EXPECT_EQ(home.file("other.cfg"), context.getNodeCfgFileName());
    EXPECT_EQ(home.file("cmd.cfg"), context.getCmdCfgFileName());
    EXPECT_EQ(home.file("ssl_master.cfg"), context.getSslCfgFileName());
    EXPECT_FALSE(context.getHostName().empty());
    EXPECT_THAT(context.getHostName(), Not(HasSubstr("\n")));
}

TEST_F(CShellTest, HostNameIsKnownWithoutTheProgramThatPrintsIt) {
    char expected[256] = {};
    ASSERT_EQ(0, ::gethostname(expected, sizeof expected - 1));
    const ScopedEnvironment noPrograms("PATH", home.path().c_str());
    CShell shell;
    std::list<std::string> none;
    ::testing::internal::CaptureStderr();
    ASSERT_TRUE(shell.init(none, shell.getExecutionContext()));
    EXPECT_THAT(::testing::internal::GetCapturedStderr(), Not(HasSubstr("hostname")));
    EXPECT_EQ(expected, shell.getExecutionContext().getHostName());
}

constexpr char kWarningsIntoKelshLog[] =
    "log4j.rootLogger=OFF\nlog4j.logger.kelsh=WARN, K\n"
    "log4j.appender.K=org.apache.log4j.FileAppender\n"
    "log4j.appender.K.File=${KELSH_PATH}/kelsh.log\n"
    "log4j.appender.K.layout=org.apache.log4j.PatternLayout\n"
    "log4j.appender.K.layout.ConversionPattern=%p %m%n\n";

TEST_F(CShellTest, LogTellsWhatTheReaderOfCommandsAcceptsInSilence) {
    put("log4cxx.properties", kWarningsIntoKelshLog);
    const std::string file = home.file("cmd.cfg");
    put("cmd.cfg", "#" + std::string(600, 'x') + "\n# x\r\n" + kCommands);
    EXPECT_EQ(0, run({"tools", "greet"}));
    EXPECT_EQ("WARN " + file +
                  ":1: the line is longer than 511 bytes: its rest is read as a line of its own\n"
                  "WARN " +
                  file + ":2: the line ends in a carriage return, which belongs to its value\n",
              content("kelsh.log"));
}

TEST_F(CShellTest, LogTellsThatTheCommandFileCanNotBeRead) {
    put("log4cxx.properties", kWarningsIntoKelshLog);
    EXPECT_EQ(0, run({"list"}));
    EXPECT_EQ("", content("kelsh.log"));
    ASSERT_TRUE(std::filesystem::create_directory(home.file("cmd.cfg")));
    EXPECT_EQ(0, run({"list"}));
    EXPECT_EQ("WARN " + home.file("cmd.cfg") + ": is a directory\n", content("kelsh.log"));
}

TEST_F(CShellTest, LogTellsOfFilesThatOthersCanWrite) {
    put("log4cxx.properties", kWarningsIntoKelshLog);
    put("cmd.cfg", kCommands);
    ASSERT_EQ(0, ::chmod(home.file("cmd.cfg").c_str(), 0644));
    ASSERT_EQ(0, ::chmod(home.file("node.cfg").c_str(), 0644));
    ASSERT_EQ(0, ::chmod(home.file("ssl_master.cfg").c_str(), 0644));
    EXPECT_EQ(0, run({"tools", "greet"}));
    EXPECT_EQ("", content("kelsh.log"));
    ASSERT_EQ(0, ::chmod(home.file("cmd.cfg").c_str(), 0666));
    EXPECT_EQ(0, run({"tools", "greet"}));
    EXPECT_THAT(content("kelsh.log"), AllOf(StartsWith("WARN " + home.file("cmd.cfg") + " "),
                                            HasSubstr("0666"), HasSubstr("chmod")));
}

TEST_F(CShellTest, ConfigurationErrorsEndTheProgram) {
    put("node.cfg", "stray\n");
    EXPECT_EQ(2, run({"list"}));
    EXPECT_EQ(
        "Line:1, Invalid line position: stray\n"
        "Something wrong in init()....! The program is terminated.\n",
        output);
    EXPECT_EQ(2, run({}));
    EXPECT_THAT(output, EndsWith("The program is terminated.\n"));
}

TEST_F(CShellTest, WarningsAloneStopNothing) {
    put("node.cfg", "[node]\nn1=02:00:00:00:00:01,127.0.0.1:1\n");
    EXPECT_EQ(0, run({"list", "group"}));
    EXPECT_THAT(output, Not(HasSubstr("Can not connect")));
}

TEST_F(CShellTest, PipedLineRunsAsACommand) {
    const StandardInput piped = StandardInput::holding(" list   group \nquit\n");
    EXPECT_EQ(0, run({}));
    EXPECT_THAT(output, HasSubstr("[local] ("));
    EXPECT_THAT(output, EndsWith("Total: 0\n"));
    EXPECT_THAT(output, Not(HasSubstr("Bye bye.")));
}

TEST_F(CShellTest, PipedWordsFollowTheArguments) {
    const StandardInput piped = StandardInput::holding("group");
    EXPECT_EQ(0, run({"list"}));
    EXPECT_THAT(output, EndsWith("Total: 0\n"));
}

TEST_F(CShellTest, LeadingSetNamesChooseTheLevel) {
    put("cmd.cfg", kCommands);
    EXPECT_EQ(0, run({"tools", "greet"}));
    EXPECT_THAT(output, HasSubstr("\nhello\n"));
    EXPECT_EQ(0, run({"tools/greet"}));
    EXPECT_THAT(output, HasSubstr("\nhello\n"));
    EXPECT_EQ(2, run({"tools"}));
    EXPECT_EQ("Unknown command: \n", output);
    EXPECT_EQ(2, run({"greet"}));
    EXPECT_EQ("Unknown command: greet\n", output);
}

TEST_F(CShellTest, OptionErrorsOfAKnownCommandGiveSeven) {
    EXPECT_EQ(7, run({"save", "file", "-f", "/x", "-n", "ghost"}));
    EXPECT_EQ("Error! node \"ghost\" does not exist.\n", output);
    EXPECT_EQ(2, run({"sew", "file", "-n", "ghost"}));
    EXPECT_EQ(
        "Error! node \"ghost\" does not exist.\n"
        "Unknown command: sew file -n ghost\n"
        "Error! node \"ghost\" does not exist.\n",
        output);
}

TEST_F(CShellTest, OptionErrorsOfACommandWithAPathInFrontGiveSeven) {
    EXPECT_EQ(7, run({"anywhere/save", "file", "-f", "/x", "-n", "ghost"}));
    EXPECT_EQ("Error! node \"ghost\" does not exist.\n", output);
}

TEST_F(CShellTest, CommandWithBadOptionsOfItsOwnIsUnknown) {
    EXPECT_EQ(2, run({"save", "file"}));
    EXPECT_EQ("Unknown command: save file\nOption [-f|--file] must be provided.\n", output);
}

TEST_F(CShellTest, CommandLineTakesItsNumberAfterwards) {
    EXPECT_EQ(2, run({"nonsense"}));
    EXPECT_FALSE(std::filesystem::exists(home.file("cmdseq.cfg")));
    EXPECT_EQ(0, run({"list", "group"}));
    EXPECT_EQ("1", content("cmdseq.cfg"));
    EXPECT_EQ(7, run({"save", "file", "-g", "ghost"}));
    EXPECT_EQ("2", content("cmdseq.cfg"));
}

TEST_F(CShellTest, ValueThatEqualsAnEarlierWordLeavesThatWordInItsPlace) {
    CShell shell;
    CShellExecutionContext& context = shell.getExecutionContext();
    context.getNodeMap()["a"] = new CNode("a", "", "");
    ConfigErrorCollector errors;
    const std::unique_ptr<CCommandExecutionContext> request(
        shell.processCommandOption("copy a b -n a", context, &errors));
    EXPECT_EQ("copy a b", request->getCommandRequest());
}

TEST_F(CShellTest, TimeOutsAreReadAsStated) {
    CShell shell;
    const auto read = [&](const std::string& value) {
        ConfigErrorCollector errors;
        const std::unique_ptr<CCommandExecutionContext> request(
            shell.processCommandOption("x -t " + value, shell.getExecutionContext(), &errors));
        return errors.getSize() > 0 ? errors.toString() : std::to_string(request->getTimeOut());
    };
    EXPECT_EQ("1500", read("1500"));
    EXPECT_EQ("12", read("12ms"));
    EXPECT_EQ("0", read("0"));
    EXPECT_EQ("0", read("x"));
    EXPECT_EQ("Invalid time out: 00\n", read("00"));
    EXPECT_EQ("Invalid time out: abc\n", read("abc"));
    EXPECT_EQ("Invalid time out: -5\n", read("-5"));
    EXPECT_EQ("4294967295", read("99999999999999999999"));
}

TEST_F(CShellTest, ValidRequestsNameACommandUsableAtTheLevel) {
    put("cmd.cfg", kCommands);
    CShell shell;
    CShellExecutionContext& context = shell.getExecutionContext();
    Words words;
    ASSERT_TRUE(shell.init(words, context));
    const auto valid = [&](const std::string& text) {
        CCommandExecutionContext request;
        request.setCommandRequest(text);
        request.setValidCommand(true);
        shell.validateCommand(&request);
        return request.isValidCommand();
    };
    EXPECT_TRUE(valid("list node"));
    EXPECT_TRUE(valid("save -f /x"));
    EXPECT_TRUE(valid("tools/look -x"));
    EXPECT_TRUE(valid("/tools/greet"));
    EXPECT_TRUE(valid("tools/list"));
    EXPECT_FALSE(valid("tools/lis"));
    EXPECT_FALSE(valid("nowhere/greet"));
    EXPECT_FALSE(valid("greet"));
    EXPECT_FALSE(valid(""));
    // A set of the working level, and what the dispatcher takes.
    EXPECT_TRUE(valid("tools"));
    EXPECT_TRUE(valid("tools nothing"));
    EXPECT_TRUE(valid("tools/list node"));
    EXPECT_TRUE(valid("nowhere/save file"));
    EXPECT_TRUE(valid("BASIC/list node"));
    EXPECT_TRUE(valid("/BASIC/list node"));
    EXPECT_FALSE(valid("BASI"));
    context.toLowerLevel("tools");
    EXPECT_TRUE(valid("look up"));
    EXPECT_TRUE(valid("tools"));
    EXPECT_FALSE(valid("biosfw"));
    EXPECT_TRUE(valid("greet"));
    EXPECT_TRUE(valid("list"));
    EXPECT_FALSE(valid("gree"));
}

TEST_F(CShellTest, SignalHandlerOnlyTalks) {
    ::testing::internal::CaptureStdout();
    errno = EAGAIN;
    signalHandler(SIGINT);
    signalHandler(15);
    signalHandler(0);
    signalHandler(-12);
    EXPECT_EQ(EAGAIN, errno);
    EXPECT_EQ(
        "Do not use Ctrl+C to terminate this program.\n"
        "Catch a signal 15\nCatch a signal 0\nCatch a signal -12\n",
        ::testing::internal::GetCapturedStdout());
}

TEST_F(CShellTest, RunInstallsTheHandlerAndRaisesTheDescriptorLimit) {
    rlimit limit{};
    ASSERT_EQ(0, ::getrlimit(RLIMIT_NOFILE, &limit));
    limit.rlim_cur = limit.rlim_max / 2;
    ASSERT_EQ(0, ::setrlimit(RLIMIT_NOFILE, &limit));
    EXPECT_EQ(2, run({"--validate"}));
    struct sigaction action {};
    ASSERT_EQ(0, ::sigaction(SIGINT, nullptr, &action));
    EXPECT_EQ(&signalHandler, action.sa_handler);
    EXPECT_EQ(0, action.sa_flags & SA_RESTART);
    for (const int ignored : {SIGPIPE, SIGXFSZ}) {
        ASSERT_EQ(0, ::sigaction(ignored, nullptr, &action));
        EXPECT_EQ(SIG_IGN, action.sa_handler);
    }
    ASSERT_EQ(0, ::getrlimit(RLIMIT_NOFILE, &limit));
    EXPECT_EQ(limit.rlim_max, limit.rlim_cur);
}

TEST_F(CShellTest, LockCallbackLocksAndUnlocks) {
    CShell::init_locks();
    CShell::init_locks();
    CShell::lock_callback(CRYPTO_LOCK, 0, __FILE__, __LINE__);
    CShell::lock_callback(CRYPTO_UNLOCK, 0, __FILE__, __LINE__);
    CShell::lock_callback(CRYPTO_LOCK | CRYPTO_READ, 0, __FILE__, __LINE__);
    CShell::lock_callback(CRYPTO_UNLOCK, 0, __FILE__, __LINE__);
    CShell::kill_locks();
    CShell::kill_locks();
    CShell::kill_locks();
    EXPECT_EQ(static_cast<unsigned long>(::pthread_self()), CShell::thread_id());
}
