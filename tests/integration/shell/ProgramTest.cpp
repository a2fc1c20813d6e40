// The real shell as a child process: words, pipes, environments, exit statuses, transcripts.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CResult.h"
#include "ChildProcess.h"
#include "LocalCluster.h"
#include "ResultBlocks.h"
#include "TempDir.h"
#include "TestPaths.h"

namespace {

using ::testing::HasSubstr;

struct Outcome {
    int status = -1;
    std::string output;
    std::string errors;
};

Outcome shell(const std::string& line) {
    Outcome outcome;
    ChildProcess::Request request;
    request.commandLine = line;
    request.input = ChildProcess::Input::kNull;
    request.output = &outcome.output;
    request.errorOutput = &outcome.errors;
    outcome.status = ChildProcess::run(request).exitCode();
    outcome.output = withoutTimes(outcome.output);
    return outcome;
}

std::string content(const std::string& name) {
    std::ifstream file(name);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

// --- without a node

class Program : public ::testing::Test {
protected:
    Program() {
        std::filesystem::create_directories(directory.file("home/cmdexedump"));
        std::filesystem::create_directories(directory.file("bin"));
        put("bin/hostname", "#!/bin/sh\necho master\n");
        std::filesystem::permissions(directory.file("bin/hostname"),
                                     std::filesystem::perms::owner_all);
        put("home/node.cfg", "");
        put("home/other.cfg", "[group]\n");
        put("home/ssl_master.cfg", "PRIVATE_KEY_FILE=k\nPUBLIC_KEY_FILE=p\nCERTIFICATE_FILE=c\n");
        put("home/kelsh_version.cfg", "VERSION=1.0\nBUILD=7\n");
        put("home/cmd.cfg",
            "[cmdset]\nname=tools\ndescription=D\n[cmd]\nname=hello\ndescription=D\ntype=SCRIPT\n"
            "destination=MASTER\ncmd=echo hello\n[cmd]\nname=fail\ndescription=D\ntype=SCRIPT_OPT\n"
            "destination=MASTER\ncmd=false\n[cmd]\nname=far\ndescription=D\ntype=SCRIPT\n"
            "destination=SLAVE\ncmd=true\n[cmdset]\nname=tools/disk\ndescription=D\n[cmd]\n"
            "name=sync all\ndescription=D\ntype=SCRIPT\ndestination=MASTER\ncmd=echo synced\n");
        put("home/log4cxx.properties",
            "log4j.rootLogger=OFF\nlog4j.logger.kelsh=INFO, K\nlog4j.additivity.kelsh=false\n"
            "log4j.appender.K=org.apache.log4j.FileAppender\nlog4j.appender.K.File=" +
                directory.file("home/kelsh.log") +
                "\nlog4j.appender.K.layout=org.apache.log4j.PatternLayout\n"
                "log4j.appender.K.layout.ConversionPattern=%p %m%n\n"
                "log4j.logger.cmdresult=INFO, CMD_RESULT_FILE\n"
                "log4j.additivity.cmdresult=false\n"
                "log4j.appender.CMD_RESULT_FILE=org.apache.log4j.FileAppender\n"
                "log4j.appender.CMD_RESULT_FILE.Append=false\n"
                "log4j.appender.CMD_RESULT_FILE.File=" +
                directory.file("home/cmdexedump/start") +
                "\nlog4j.appender.CMD_RESULT_FILE.layout=org.apache.log4j.PatternLayout\n"
                "log4j.appender.CMD_RESULT_FILE.layout.ConversionPattern=%m%n\n");
    }
    void put(const std::string& name, const std::string& text) const {
        std::ofstream(directory.file(name)) << text;
    }
    std::string home(const std::string& name) const {
        return content(directory.file("home/" + name));
    }
    // In the working directory "home", as "kelsh WORDS" behind a prefix such as "echo x |".
    Outcome kelsh(const std::string& words, const std::string& before = "",
                  const std::string& environment = "KELSH_PATH=$PWD") const {
        return shell("cd " + directory.file("home") + " && PATH=" + directory.file("bin") +
                     ":$PATH && " + before + " " + environment +
                     " " KELSH_BINARY_DIR "/bin/kelsh " + words);
    }
    // What the shell prints when these lines are typed at its prompt, from its first prompt on.
    std::string typed(const std::string& lines) {
        // An empty first line leaves no words: the rest is for the prompt.
        const Outcome outcome = kelsh("", "printf '\\n" + lines + "' |");
        EXPECT_EQ(7, outcome.status);
        EXPECT_EQ("", outcome.errors);
        const std::string opening =
            "0 node(s) are loaded ....\nLog property file: " + directory.file("home") +
            "/log4cxx.properties\n"
            "kelsh (A CLI interface for managing cluster.)\n"
            "Version 1.0, Build 7\n";
        EXPECT_EQ(opening, outcome.output.substr(0, opening.size()));
        return outcome.output.substr(std::min(opening.size(), outcome.output.size()));
    }

    TempDir directory;
};

struct Words {
    std::string words;
    int status;
    std::string output;
};

TEST_F(Program, WordsGiveOutputAndStatus) {
    const std::string needsFile = "It needs to provide configuration file for validation.\n";
    const std::string fine =
        "Configuration file node.cfg is OK.\nThere are 0 node definitions.\n"
        "There are 0 group definitions.\n";
    const std::vector<Words> rows = {
        {"list node", 0, "[local] (ms)\nTotal: 0\n"},
        {"list group", 0, "[local] (ms)\nTotal: 0\n"},
        {"tools hello", 0, "[local] (ms)\nhello\n\n"},
        {"tools/hello", 0, "[local] (ms)\nhello\n\n"},
        {"/tools/hello", 0, "[local] (ms)\nhello\n\n"},
        {"tools disk sync all", 0, "[local] (ms)\nsynced\n\n"},
        {"tools disk 'sync  all'", 0, "[local] (ms)\nsynced\n\n"},
        {"tools disk list node", 0, "[local] (ms)\nTotal: 0\n"},
        {"tools fail", 2, "[local] (ms)\nExitCode:2/1[FAILURE], summary: \n"},
        {"tools far", 1, "Please specify node(s) or group(s) for executing command \"far\".\n"},
        {"tools", 2, "Unknown command: \n"},
        {"tools disk", 2, "Unknown command: \n"},
        {"nothing here", 2, "Unknown command: nothing here\n"},
        {"hello", 2, "Unknown command: hello\n"},
        {"tools far -n ghost", 7, "Error! node \"ghost\" does not exist.\n"},
        {"tools far -g ghost -t 00", 7,
         "Error! group \"ghost\" does not exist.\nInvalid time out: 00\n"},
        {"nothing -n ghost", 2,
         "Error! node \"ghost\" does not exist.\nUnknown command: nothing -n ghost\n"
         "Error! node \"ghost\" does not exist.\n"},
        {"save file -f x -n ghost", 7, "Error! node \"ghost\" does not exist.\n"},
        {"-cfg other.cfg list node", 0, "[local] (ms)\nTotal: 0\n"},
        {"list --configuration other.cfg node", 0, "[local] (ms)\nTotal: 0\n"},
        {"list -cfg", 2, "Unknown command: list -cfg\n"},
        {"--validate", 2, needsFile},
        {"x --validate", 2, needsFile},
        {"--validate ''", 2, needsFile},
        {"--validate node.cfg", 0, fine},
        {"--validate node.cfg other words", 0, fine},
        {"list --validate node.cfg", 0, fine},
        {"pre--validatepost node.cfg", 0, fine}};
    for (const Words& row : rows) {
        SCOPED_TRACE(row.words);
        const Outcome outcome = kelsh(row.words);
        EXPECT_EQ(row.status, outcome.status);
        EXPECT_EQ(row.output, outcome.output);
        EXPECT_EQ("", outcome.errors);
    }
}

TEST_F(Program, ValidationNamesEveryFault) {
    put("home/bad.cfg", "[node]\nn1=zz,127.0.0.1\n");
    for (const char* words : {"--validate bad.cfg", "--validate none.cfg"}) {
        const Outcome outcome = kelsh(words);
        const std::string file = std::string(words).substr(11);
        EXPECT_EQ(2, outcome.status);
        EXPECT_EQ(0u, outcome.output.find("Error! Configuration file " + file + " is not OK.\n"));
        EXPECT_THAT(outcome.output, ::testing::EndsWith("Total error(s): 1\n"));
    }
    EXPECT_FALSE(std::filesystem::exists(directory.file("home/kelsh.log")))
        << "validation does not configure logging";
}

TEST_F(Program, ConfigurationWithErrorsEndsTheProcess) {
    const std::string end = "Something wrong in init()....! The program is terminated.\n";
    for (const char* words : {"list", "-cfg none.cfg list", ""}) {
        if (std::string(words).find("none") == std::string::npos) {
            put("home/node.cfg", "[node]\nn1=zz,127.0.0.1\n");
        }
        const Outcome outcome = kelsh(words);
        EXPECT_EQ(2, outcome.status);
        EXPECT_THAT(outcome.output, ::testing::EndsWith("\n" + end));
        EXPECT_THAT(outcome.output, ::testing::Not(HasSubstr("[local]")));
    }
}

TEST_F(Program, PipedLineStandsForWords) {
    const std::string total = "[local] (ms)\nTotal: 0\n";
    EXPECT_EQ(total, kelsh("", "echo 'list node' |").output);
    EXPECT_EQ(total, kelsh("", "printf '  list \\t node  ' |").output);
    EXPECT_EQ(total, kelsh("list", "echo node |").output);
    EXPECT_EQ(total, kelsh("", "printf 'list node\\nquit\\n' |").output) << "one line only";
    EXPECT_EQ(0, kelsh("", "echo --validate node.cfg |").status);
    EXPECT_EQ(0, kelsh("--validate", "echo node.cfg |").status);
    EXPECT_EQ(2, kelsh("", "echo nothing |").status);
}

TEST_F(Program, LostOutputIsReported) {
    const Outcome full = kelsh("tools fail >/dev/full");
    EXPECT_EQ(2, full.status) << "the status stays the command's";
    EXPECT_EQ("kelsh: standard output could not be written; results are missing from it.\n",
              full.errors);
    EXPECT_EQ(2, kelsh("tools hello >/dev/full").status) << "the result was lost, and that shows";
    const Outcome cut = kelsh("help | head -n 1");
    EXPECT_EQ("[local] (ms)\n", cut.output);
    EXPECT_EQ("", cut.errors) << "who reads only the beginning wants no complaint";
}

TEST_F(Program, LogsOnAFullDiskCostNoResult) {
    const std::string missing = ": IO Exception : status code = 28(No space left on device)\n";
    const std::string dumpIncomplete = "kelsh: the log \"cmdresult\" is incomplete" + missing;
    const std::string logIncomplete = "kelsh: the log \"kelsh\" is incomplete" + missing;
    std::filesystem::create_symlink("/dev/full", directory.file("home/cmdexedump/cmd_0.log"));
    const Outcome dump = kelsh("tools hello");
    EXPECT_EQ(0, dump.status);
    EXPECT_EQ("[local] (ms)\nhello\n\n", dump.output);
    EXPECT_EQ(dump.errors, dumpIncomplete);
    std::filesystem::remove(directory.file("home/kelsh.log"));
    std::filesystem::create_symlink("/dev/full", directory.file("home/kelsh.log"));
    const Outcome both = kelsh("tools fail");
    EXPECT_EQ(2, both.status);
    EXPECT_THAT(both.output, HasSubstr("ExitCode:2/1[FAILURE]"));
    EXPECT_THAT(both.errors, HasSubstr(logIncomplete));
    const Outcome prompt = kelsh("", "printf '\\ntools/hello\\ntools/hello\\nquit\\n' |");
    EXPECT_EQ(7, prompt.status);
    EXPECT_THAT(prompt.output, ::testing::EndsWith("Bye bye.\n"));
    EXPECT_EQ(prompt.errors.find(logIncomplete), prompt.errors.rfind(logIncomplete))
        << "told once: " << prompt.errors;
}

TEST_F(Program, NoWordsAndNoInputEndsAsQuitDoes) {
    EXPECT_THAT(typed(""), ::testing::EndsWith("[master]$ \nBye bye.\n"));
    EXPECT_EQ(7, kelsh("").status);
}

TEST_F(Program, CommandLineNumbersComeAfterTheRun) {
    put("home/cmdseq.cfg", "5");
    kelsh("tools hello");
    kelsh("tools far -n ghost");
    kelsh("nothing");
    EXPECT_EQ("7", home("cmdseq.cfg")) << "an unknown command takes no number";
    EXPECT_THAT(home("kelsh.log"), HasSubstr("INFO (5)[hello]\n"));
    EXPECT_THAT(home("kelsh.log"), HasSubstr("INFO (6)[far -n ghost]\n"));
    EXPECT_EQ("[local] (ms)\nhello\n\n", withoutTimes(home("cmdexedump/cmd_0.log")));
}

TEST_F(Program, InstallPathDecidesWhereFilesAre) {
    const std::string total = "[local] (ms)\nTotal: 0\n";
    EXPECT_EQ(total, kelsh("list node", "", "KELSH_PATH=.").output);
    EXPECT_EQ(total, kelsh("list node", "cd / &&", "KELSH_PATH=" + directory.file("home/")).output);
    for (const char* none : {"KELSH_PATH=", "env -u KELSH_PATH"}) {
        std::filesystem::remove(directory.file("home/cmdseq.cfg"));
        std::filesystem::remove(directory.file("home/kelsh.log"));
        const Outcome here = kelsh("list node", "", none);
        EXPECT_EQ(here.output, total) << "files of the working directory";
        EXPECT_EQ("", here.errors);
        EXPECT_EQ("1", home("cmdseq.cfg"));
        EXPECT_EQ("", home("kelsh.log")) << "no logging without an install path";
        const Outcome elsewhere = kelsh("list node", "cd " + directory.path() + " &&", none);
        EXPECT_EQ(2, elsewhere.status);
        EXPECT_EQ(0u, elsewhere.output.find("Error! Failed in loading kelsh_version.cfg....\n"));
        EXPECT_THAT(kelsh("", "", none).output,
                    HasSubstr("\nLog property file: log4cxx.properties\n"));
    }
}

// --- typed lines

TEST_F(Program, NavigationAndRecall) {
    EXPECT_EQ(
        "[master]$ history\nThe history of command execution is empty.\n"
        "[master]$ cd tools\n"
        "[master/tools]$ hello\n[local] (ms)\nhello\n\n"
        "[master/tools]$ !2\nExecute \"hello\"\n[local] (ms)\nhello\n\n"
        "[master/tools]$ cd nowhere\nCan not find command set: nowhere\n"
        "Unknown command: cd nowhere\n"
        "[master/tools]$ !9\nUnknown command: !9\n"
        "[master/tools]$ !0\nUnknown command: !0\n"
        "[master/tools]$ !-3\nUnknown command: !-3\n"
        "[master/tools]$ !x\nUnknown command: !x\n"
        "[master/tools]$ \nUnknown command: \n"
        "[master/tools]$ cd   ..  \n"
        "[master]$ cd tools\n"
        "[master/tools]$ cd disk\n"
        "[master/tools/disk]$ sync all\n[local] (ms)\nsynced\n\n"
        "[master/tools/disk]$ !3\nExecute \"hello\"\nUnknown command: hello\n"
        "[master/tools/disk]$ cd ..\n"
        "[master/tools]$ cd\n"
        "[master]$ history\n1  cd tools\n2  hello\n3  hello\n4  cd   ..  \n5  cd tools\n"
        "6  cd disk\n7  sync all\n8  cd ..\n9  cd\n"
        "[master]$ quit\nBye bye.\n",
        typed("history\\ncd tools\\nhello\\n!2\\ncd nowhere\\n!9\\n!0\\n!-3\\n!x\\n\\n"
              "cd   ..  \\ncd tools\\ncd disk\\nsync all\\n!3\\ncd ..\\ncd\\nhistory\\nquit\\n"
              "hello\\n"));
}

TEST_F(Program, TypedLinesTakeTheirNumbersBeforeTheyRun) {
    typed("cd tools\\nhello\\nhistory\\nnothing\\n!2\\ncd\\nquit\\n");
    // "hello", "nothing" and the recalled "hello".
    EXPECT_EQ("3", home("cmdseq.cfg"));
    EXPECT_EQ(
        "INFO >>>Enter interactive mode. [Version 1.0, Build 7]\n"
        "INFO (0)cd tools\nINFO (0)hello\nINFO (2)hello\nINFO (2)cd\n"
        "INFO <<<Exit interactive mode.\n",
        home("kelsh.log"));
    EXPECT_EQ("[local] (ms)\nhello\n\n", withoutTimes(home("cmdexedump/cmd_0.log")));
    EXPECT_EQ("[local] (ms)\nhello\n\n", withoutTimes(home("cmdexedump/cmd_2.log")));
    EXPECT_FALSE(std::filesystem::exists(directory.file("home/cmdexedump/cmd_1.log")));
}

TEST_F(Program, ErrorsOfTypedLines) {
    EXPECT_EQ(
        "[master]$ list -n ghost\nError! node \"ghost\" does not exist.\n"
        "[master]$ lost -g ghost\nError! group \"ghost\" does not exist.\n"
        "Unknown command: lost -g ghost\nError! group \"ghost\" does not exist.\n"
        "[master]$ save file -f\nUnknown command: save file -f\n"
        "Option [-f|--file] must have option value.\n"
        "[master]$ tools\nUnknown command: tools\n"
        "[master]$ ..\nUnknown command: ..\n"
        "[master]$ cd tools/disk\nCan not find command set: tools/disk\n"
        "Unknown command: cd tools/disk\n"
        "[master]$ history\n1  list -n ghost\n"
        "[master]$ last\nUnknown command: last\nBye bye.\n",
        typed("list -n ghost\\nlost -g ghost\\nsave file -f\\ntools\\n..\\ncd tools/disk\\n"
              "history\\nlast"));
}

TEST_F(Program, HelpTextsAgree) {
    const std::string whole = kelsh("help").output;
    EXPECT_EQ(whole, kelsh("'?\?'").output);
    EXPECT_EQ(whole, kelsh("--help").output);
    EXPECT_THAT(whole,
                HasSubstr("(A CLI interface for managing cluster.)\nVersion 1.0, Build 7\nUsage:\n"
                          "\tOptions for commands executed on slave nodes:\n"
                          "\t\t[-n|--node]\tfor specified slave nodes.\n"
                          "\t\t[-g|--group]\tfor slave nodes in the specified groups.\n"
                          "\t\t[-t|--timeout]\tfor time out of the command execution.\n"));
    const std::string level = kelsh("tools disk '?'").output;
    EXPECT_THAT(level, HasSubstr("sync all"));
    EXPECT_THAT(level, ::testing::Not(HasSubstr("hello")));
    EXPECT_EQ(
        "[local] (ms)\n--help   ?   ??   clear   get file   help   history   list   "
        "list group   list node   quit   save file   \n[biosfw]   [r3biosfw]   [ipmifw]   "
        "[tools]   \n",
        kelsh("list").output);
    EXPECT_EQ("[local] (ms)\nfail   far   hello   \n[disk]   \n", kelsh("tools list").output);
}

// --- with nodes

class ProgramOnNodes : public ::testing::Test {
protected:
    static void SetUpTestSuite() { cluster = std::make_unique<LocalCluster>(3); }
    static void TearDownTestSuite() { cluster.reset(); }
    static LocalCluster::Run kelsh(const std::string& words) {
        LocalCluster::Run run = cluster->kelsh(words);
        run.output = withoutTimes(run.output);
        return run;
    }
    static std::unique_ptr<LocalCluster> cluster;
};

std::unique_ptr<LocalCluster> ProgramOnNodes::cluster;

TEST_F(ProgramOnNodes, EveryNodeHasItsBlockInOrder) {
    const LocalCluster::Run run = kelsh("lab path -g all -n node_0001");
    std::string blocks;
    for (int i = 0; i < 3; ++i) {
        blocks += "[" + LocalCluster::nodeName(i) + "] (ms)\n" + cluster->nodePath(i) + "/\n\n";
    }
    EXPECT_EQ(run.output, blocks);
    EXPECT_EQ(0, run.status);
    EXPECT_EQ(blocks, withoutTimes(cluster->shellFile("cmdexedump/cmd_0.log")));
}

TEST_F(ProgramOnNodes, HungCommandReportsItsTimeOut) {
    const LocalCluster::Run run = cluster->kelsh("lab slow -n node_0000 -t 1500");
    EXPECT_EQ("[node_0000] (1500ms)\nExitCode:5/0[TIMED_OUT], summary: \n", run.output);
    EXPECT_EQ(5, run.status);
}

TEST_F(ProgramOnNodes, ForeignMachineIsNotGivenTheCommand) {
    const std::string nodes = cluster->shellFile("node.cfg");
    // "node_0001=MAC,ADDRESS"
    const std::size_t mac = nodes.find("node_0001=") + std::string("node_0001=").size();
    const std::size_t comma = nodes.find(',', mac);
    const std::string ip = nodes.substr(comma + 1, nodes.find(':', comma) - comma - 1);
    std::string foreign = nodes;
    foreign.replace(mac, comma - mac, "02:00:00:00:00:99");
    cluster->writeShellFile("node.cfg", foreign);
    const LocalCluster::Run run = kelsh("lab path -n node_0001");
    cluster->writeShellFile("node.cfg", nodes);
    CResult rejected;
    rejected.setRunStatus(1);
    EXPECT_EQ("[node_0001] (ms)\nExitCode:1/0[" + rejected.getStatusEnumString() +
                  "], summary: Node node_0001: IP(" + ip +
                  ") and MAC(02:00:00:00:00:99) are not matched!\n",
              run.output);
    EXPECT_EQ(1, run.status);
}

TEST_F(ProgramOnNodes, ConfirmedFromAPipe) {
    const auto answered = [&](const std::string& keys) {
        // The first line of the pipe belongs to the words.
        return shell("cd / && printf '\\n" + keys + "' | " +
                     cluster->kelshLine("tools disk sync -g all"));
    };
    const std::string asked =
        "Do you really want to write the caches of all chosen nodes to disk for 3 node(s)? "
        "[Yes/No]\n";
    const Outcome no = answered("xn");
    EXPECT_EQ(no.output, asked + asked + "Command \"sync\" is canceled for 3 node(s).\n");
    EXPECT_EQ(1, no.status);
    const Outcome yes = answered("y");
    EXPECT_EQ(asked + "[node_0000] (ms)\n\n[node_0001] (ms)\n\n[node_0002] (ms)\n\n", yes.output);
    EXPECT_EQ(0, yes.status);
}

TEST_F(ProgramOnNodes, FileGoesOutAndComesBack) {
    const TempDir files;
    const std::string file = files.file("payload");
    std::ofstream(file) << "payload";
    const LocalCluster::Run saved = kelsh("save file -f " + file + " -n node_0000");
    EXPECT_EQ(0, saved.status);
    const LocalCluster::Run fetched = kelsh("get file -f " + file + " -n node_0000");
    EXPECT_EQ(0, fetched.status);
    EXPECT_EQ(0u, fetched.output.find("[node_0000] (ms)\nFile \"" + file +
                                      "\" already exists in local site!\n"))
        << fetched.output;
    EXPECT_THAT(fetched.output, HasSubstr("\nOver write the original file."));
    const std::string gone = files.file("gone");
    EXPECT_EQ(
        "[node_0000] (ms)\nExitCode:2/0[FAILURE], summary: File \"" + gone + "\" does not exist!\n",
        kelsh("save file -f " + gone + " -n node_0000").output);
    const LocalCluster::Run refused = kelsh("get file -f " + files.path() + " -n node_0000");
    EXPECT_EQ(2, refused.status);
    EXPECT_THAT(refused.output,
                HasSubstr("File \"" + files.path() + "\" already exists in local site!\n"));
    EXPECT_THAT(refused.output, ::testing::Not(HasSubstr("Over write")));
}

}  // namespace
