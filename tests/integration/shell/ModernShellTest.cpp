// The modern interface of the real kelsh against real kelnode agents.

#include <fstream>
#include <string>
#include <sys/stat.h>

#include <gmock/gmock.h>

#include "CUtil.h"
#include "LocalCluster.h"
#include "ResultBlocks.h"
#include "TestPaths.h"

namespace {

using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;

class ModernShell : public ::testing::Test {
protected:
    void SetUp() override {
        const std::string file = cluster.shellPath() + "/kelsh.cfg";
        std::ofstream(file) << "INTERFACE=modern\n";
        ASSERT_EQ(0, ::chmod(file.c_str(), 0644));
    }
    // Input of the program behind it, or in front of it with a "|".
    int kelsh(const std::string& words, const std::string& input = "") {
        return CUtil::exec_cmd(input + "KELSH_PATH=" + cluster.shellPath() +
                                   " " KELSH_BINARY_DIR "/bin/kelsh " + words +
                                   (input.empty() ? " </dev/null" : ""),
                               &output, &errors);
    }

    LocalCluster cluster{3};
    std::string output;
    std::string errors;
};

}  // namespace

TEST_F(ModernShell, LineOfThePromptReachesTheNodeByteForByte) {
    std::ofstream(cluster.shellPath() + "/lines")
        << "\nrun -n node_0000, node_0001 -- printf '<%s>' \"two  blanks\"   -- -n x;  "
           "echo\nexit\n";
    EXPECT_EQ(0, kelsh("", "cat " + cluster.shellPath() + "/lines | "));
    EXPECT_THAT(withoutTimes(output),
                AllOf(HasSubstr("[node_0000] (ms)\n<two  blanks><--><-n><x>\n"),
                      HasSubstr("[node_0001] (ms)\n<two  blanks><--><-n><x>\n")));
}

TEST_F(ModernShell, WordsOfTheCommandLineAreJoinedByABlank) {
    EXPECT_EQ(0, kelsh("run -n node_0002 -- echo a -t 'b  c' --fold"));
    EXPECT_EQ("[node_0002] (ms)\na -t b c --fold\n\n", withoutTimes(output));
    EXPECT_EQ("", errors);
    // The client's word for a copied file is a word of the line like others.
    EXPECT_EQ(2, kelsh("run -n node_0002 -- '[savefile]/etc/hostname'"));
    EXPECT_THAT(output, HasSubstr("ExitCode:2/127[FAILURE]"));
}

TEST_F(ModernShell, ExitStatusAndDigestTellTheCausesApart) {
    const std::string file = cluster.shellPath() + "/node.cfg";
    std::string nodes = cluster.shellFile("node.cfg");
    // No agent listens there.
    nodes.insert(nodes.find("[group]"), "node_0009=02:00:00:00:00:99,127.0.0.1:1\n\n");
    std::ofstream(file) << nodes;
    EXPECT_EQ(3, kelsh("run -n node_0000,node_0009 --fold -- true"));
    EXPECT_THAT(errors, EndsWith(": 1 ok, 1 unreachable node_0009\n"));
    EXPECT_EQ(2, kelsh("run -n node_0000,node_0009 -- exit 4"));
    EXPECT_THAT(errors, EndsWith(": 1 failed (exit 4) node_0000, 1 unreachable node_0009\n"));
    EXPECT_EQ(5, kelsh("run -n node_0000,node_0009 -t 700ms -- sleep 20"));
    EXPECT_THAT(errors, EndsWith(": 1 timed out node_0000, 1 unreachable node_0009\n"));
    EXPECT_EQ(0, kelsh("run -g all --fold -- echo same"));
    EXPECT_THAT(output,
                AllOf(HasSubstr("[node_[0000-0002]] (3 nodes, "), EndsWith("ms)\nsame\n\n")));
    EXPECT_EQ("", errors);
}

TEST_F(ModernShell, LeavesTheListOfALoopAlone) {
    EXPECT_EQ(
        0, CUtil::exec_cmd("printf 'node_0000\\nnode_0001\\n' | while read n; do KELSH_PATH=" +
                               cluster.shellPath() +
                               " " KELSH_BINARY_DIR "/bin/kelsh run -n $n -- true || exit 9; done",
                           &output, &errors));
    EXPECT_THAT(output, AllOf(HasSubstr("[node_0000]"), HasSubstr("[node_0001]")));
}
