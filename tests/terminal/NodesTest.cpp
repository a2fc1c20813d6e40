// The shell on a terminal with commands that run on nodes: real agents on loopback addresses.

#include <fstream>

#include "LocalCluster.h"
#include "ShellOnTerminal.h"
#include "TestPki.h"

namespace {

class NodesTest : public ShellOnTerminal {
protected:
    NodesTest() {
        cluster.writeShellFile(
            "cmd.cfg",
            commandSet("lab", {{"name", "echo on a node", "", "SLAVE"},
                               {"wait",
                                "touch " + directory.file("ready") + "; while test ! -e " +
                                    directory.file("go") + "; do sleep 0.05; done; echo done",
                                "", "SLAVE"},
                               {"flash", "touch " + directory.file("flashed") + "; echo flashed",
                                "confirmtype=each\nconfirmmsg=Flash?\n", "SLAVE"}}));
        wanted = options(24, 80);
        wanted.environment["KELSH_PATH"] = cluster.shellPath() + "/";
    }

    // At the level "lab".
    std::unique_ptr<PtyTerminal> startInLab() const {
        auto terminal = start(wanted);
        terminal->type("cd lab<cr>");
        EXPECT_TRUE(terminal->untilLine("[master/lab]$ "));
        return terminal;
    }
    bool exists(const std::string& name) const {
        return std::filesystem::exists(directory.file(name));
    }

    LocalCluster cluster{2};
    PtyTerminal::Options wanted;
};

TEST_F(NodesTest, CommandRunsOnNodesAndShowsItsBlocksOnce) {
    const auto terminal = startInLab();
    terminal->type("name -n node_0000,node_0001<cr>");
    ASSERT_TRUE(terminal->until([&] {
        return terminal->shows("[node_0001]") && terminal->lineAtCursor() == "[master/lab]$ ";
    }));
    EXPECT_TRUE(terminal->shows("[node_0000]"));
    quit(*terminal);
}

TEST_F(NodesTest, NodesRecordTheUserAndTheNumberOfTheCommand) {
    const auto terminal = startInLab();
    // Numbers begin at 0, which a node takes for none.
    for (const char* node : {"node_0001", "node_0000"}) {
        terminal->type(std::string("name -n ") + node + "<cr>");
        ASSERT_TRUE(terminal->until([&] {
            return terminal->shows(std::string("[") + node + "]") &&
                   terminal->lineAtCursor() == "[master/lab]$ ";
        }));
    }
    quit(*terminal);
    std::ifstream audit(cluster.nodePath(0) + "/audit.log");
    std::string line;
    while (std::getline(audit, line) && line.find("echo on a node") == std::string::npos) {
    }
    EXPECT_NE(line.find("\"command\":1,"), std::string::npos) << line;
    EXPECT_TRUE(std::filesystem::exists(cluster.shellPath() + "/cmdexedump/cmd_1.log"));
    EXPECT_NE(line.find("\"certificate\":\"master\""), std::string::npos) << line;
    EXPECT_NE(line.find("\"user\":\""), std::string::npos) << line;
    EXPECT_EQ(std::string::npos, line.find("\"user\":\"\"")) << line;
}

TEST_F(NodesTest, CertificateAboutToEndIsAnnounced) {
    TestPki pki(directory.file("pki"));
    TestPki::Request request;
    request.commonName = "short";
    request.notAfterSeconds = 5L * 24 * 3600 + 3600;
    const std::string file = pki.issue("m", request).certificateFile;
    cluster.writeShellFile("node.cfg", "");
    cluster.writeShellFile("ssl_master.cfg",
                           "PRIVATE_KEY_FILE=none.key\nPUBLIC_KEY_FILE=none.pub\n"
                           "CERTIFICATE_FILE=" +
                               file + "\n");
    const auto terminal = start(wanted);
    EXPECT_TRUE(terminal->shows("The certificate CN=short in ")) << "no warning";
    EXPECT_TRUE(terminal->shows("expires in 5 days"));
    quit(*terminal);
}

TEST_F(NodesTest, CtrlCDoesNotCutACommandShort) {
    const auto terminal = startInLab();
    terminal->type("wait -n node_0000 -t 60000<cr>");
    ASSERT_TRUE(terminal->until([&] { return exists("ready"); }));
    terminal->type("<^C>");
    ASSERT_TRUE(terminal->untilShown("Do not use Ctrl+C to terminate this program."));
    writeFile("go", "");
    ASSERT_TRUE(terminal->untilShown("done"));
    ASSERT_TRUE(terminal->untilLine("[master/lab]$ "));
    quit(*terminal);
}

TEST_F(NodesTest, ResizeAndTypeAheadWhileNodesWork) {
    const auto terminal = startInLab();
    terminal->type("wait -n node_0000 -t 60000<cr>");
    ASSERT_TRUE(terminal->until([&] { return exists("ready"); }));
    terminal->resize(30, 60);
    terminal->type("history<cr>");
    writeFile("go", "");
    ASSERT_TRUE(terminal->untilShown("done"));
    ASSERT_TRUE(terminal->untilShown("1  cd lab"));
    ASSERT_TRUE(terminal->untilLine("[master/lab]$ "));
    quit(*terminal);
}

TEST_F(NodesTest, EachNodeIsConfirmedOnItsOwn) {
    const auto terminal = startInLab();
    terminal->type("flash -g all<cr>");
    ASSERT_TRUE(terminal->untilShown("Flash for node_0000? [Yes/No/Cancel]"));
    terminal->resize(40, 100);
    terminal->type("n");
    ASSERT_TRUE(terminal->untilShown("Command \"flash\" is canceled for node_0000."));
    ASSERT_TRUE(terminal->untilShown("Flash for node_0001? [Yes/No/Cancel]"));
    EXPECT_FALSE(exists("flashed"));
    terminal->type("y");
    ASSERT_TRUE(terminal->untilShown("flashed"));
    ASSERT_TRUE(terminal->untilLine("[master/lab]$ "));
    EXPECT_TRUE(exists("flashed"));
    quit(*terminal);
}

TEST_F(NodesTest, HangUpDuringACommandEndsTheShell) {
    const auto terminal = startInLab();
    terminal->type("wait -n node_0000 -t 60000<cr>");
    ASSERT_TRUE(terminal->until([&] { return exists("ready"); }));
    terminal->hangUp();
    const std::optional<int> status = terminal->end();
    ASSERT_TRUE(status.has_value());
    EXPECT_TRUE(endedByHangUp(*status)) << *status;
    writeFile("go", "");
}

}  // namespace
