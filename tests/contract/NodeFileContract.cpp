#include <filesystem>
#include <ostream>
#include <sys/stat.h>

#include "AgentsByAddress.h"
#include "CNode.h"
#include "CNodeGroup.h"
#include "CShellConfigReader.h"
#include "CShellExecutionContext.h"
#include "ConfigErrorCollector.h"
#include "ConfigFiles.h"
#include "Contract.h"
#include "TempDir.h"
#include "TextStream.h"

namespace {

class NodeFile : public testing::Test {
protected:
    NodeFile() { AgentsByAddress::reset(); }
    ~NodeFile() override { EXPECT_EQ(AgentsByAddress::liveClients(), 0); }

    // Every agent of the 10.0.0 network can be reached and cannot tell its MAC.
    void quietAgents() {
        for (int last = 1; last <= 9; ++last) {
            AgentsByAddress::at("10.0.0." + std::to_string(last));
        }
    }
    std::string read(const std::string& text) {
        const TextStream stream(text);
        CShellConfigReader::readNodeConfig(stream.get(), context, &errors);
        return errors.toString();
    }
    std::string nodes() {
        std::string text;
        for (const auto& [name, node] : context.getNodeMap()) {
            EXPECT_EQ(name, node->getName());
            text += name + "=" + node->getMac() + "," + node->getIp() + ":" +
                    std::to_string(node->getPort()) + "\n";
        }
        return text;
    }
    std::string groups() {
        std::string text;
        for (CNodeGroup* group : context.getNodeGroupList()) {
            text += group->getName() + "=";
            for (CNode* node : group->getNodes()) {
                text += node->getName() + ",";
            }
            for (CNodeGroup* member : group->getNodeGroups()) {
                text += "(" + member->getName() + ")";
            }
            text += "\n";
        }
        return text;
    }
    int levelOf(std::size_t at) { return asVector(errors.getErrorList()).at(at)->getLevel(); }

    CShellExecutionContext context;
    ConfigErrorCollector errors;
};

}  // namespace

TEST_F(NodeFile, ReadsNodesAndGroupsInAnyNumberOfSections) {
    quietAgents();
    EXPECT_EQ(read("# comment\n"
                   "\n"
                   "[node]\n"
                   "n2=02:00:aa:BB:cc:02,10.0.0.2:4422\n"
                   "[group]\n"
                   "first=n2\n"
                   "[node]\n"
                   "#n9=x,y:1\n"
                   "n1=MAC,10.0.0.1:50\n"
                   "[group]\n"
                   "second=n1,first,n2\n"
                   "empty=\n"
                   "commas=,,n1,\n"),
              "");
    EXPECT_EQ(nodes(), "n1=MAC,10.0.0.1:50\nn2=02:00:AA:BB:CC:02,10.0.0.2:4422\n");
    EXPECT_EQ(groups(), "first=n2,\nsecond=n1,n2,(first)\nempty=\ncommas=n1,\n");
    EXPECT_EQ(context.getNodeGroupList().back()->getNodes().front(), context.getNodeMap().at("n1"));
}

TEST_F(NodeFile, TakesFieldsAsTheyStand) {
    AgentsByAddress::at(" 10.0.0.1 ");
    AgentsByAddress::at("10.0.0.2=,x");
    EXPECT_EQ(read("[node]\n"
                   " a = m ,10.0.0.1:1\n"
                   "b= m , 10.0.0.1 :12xyz\n"
                   "c=m,10.0.0.2=,x:abc\n"),
              "Line:2, Can not connect to  a . (10.0.0.1:1)\n");
    EXPECT_EQ(nodes(), " a = M ,10.0.0.1:1\nb= M , 10.0.0.1 :12\nc=M,10.0.0.2=,x:0\n");
}

TEST_F(NodeFile, RecordsLinesItCannotUse) {
    quietAgents();
    EXPECT_EQ(read("n0=m,10.0.0.1:1\n"
                   "[node] \n"
                   " [node]\n"
                   "[NODE]\n"
                   "[node]\n"
                   "n1=02:00:00:AA:BB:01\n"
                   "n1=m,10.0.0.1\n"
                   "n1:m,10.0.0.1:1\n"
                   "plain\n"
                   " # no comment\n"
                   "n1=m,10.0.0.1:1\n"
                   "[group]\n"
                   "plain\n"
                   "[cmd]\n"),
              "Line:1, Invalid line position: n0=m,10.0.0.1:1\n"
              "Line:2, Invalid line position: [node] \n"
              "Line:3, Invalid line position:  [node]\n"
              "Line:4, Invalid line position: [NODE]\n"
              "Line:6, Invalid format: n1=02:00:00:AA:BB:01\n"
              "Line:7, Invalid format: n1=m,10.0.0.1\n"
              "Line:8, Invalid format: n1:m,10.0.0.1:1\n"
              "Line:9, Invalid format: plain\n"
              "Line:10, Invalid format:  # no comment\n"
              "Line:13, Invalid format: plain\n"
              "Line:14, Invalid format: [cmd]\n");
    EXPECT_EQ(errors.getSize(static_cast<CONFIGERROR_LEVEL>(2)), errors.getSize());
    EXPECT_EQ(nodes(), "n1=M,10.0.0.1:1\n");
}

TEST_F(NodeFile, RecordsFaultsOfGroupsAndDropsThem) {
    quietAgents();
    EXPECT_EQ(read("[node]\n"
                   "n1=m,10.0.0.1:1\n"
                   "n2=m,10.0.0.2:1\n"
                   "[group]\n"
                   "n1=n2\n"
                   "self=self\n"
                   "early=late,n1,ghost\n"
                   "late=n1\n"
                   "rack1= n1 , n2\n"
                   "N1=n1\n"
                   "twice=n1,n2,n1\n"),
              "Line:5, Group name \"n1\" is ambiguous. There is already a node named \"n1\" "
              "defined.\n"
              "Line:6, \"self\" is not defined for group \"self\".\n"
              "Line:7, \"late\" is not defined for group \"early\".\n"
              "Line:7, \"ghost\" is not defined for group \"early\".\n"
              "Line:9, \" n1 \" is not defined for group \"rack1\".\n"
              "Line:9, \" n2\" is not defined for group \"rack1\".\n"
              "Line:11, The node n1 already exists!\n");
    EXPECT_EQ(groups(), "late=n1,\nN1=n1,\ntwice=n1,n2,\n");
}

TEST_F(NodeFile, ComparesTheMacThatTheAgentReports) {
    AgentsByAddress::at("10.0.0.1").mac = " 02:AA\n";
    AgentsByAddress::at("10.0.0.2").mac = "02:BB";
    AgentsByAddress::at("10.0.0.3").mac = "02:aa";
    AgentsByAddress::at("10.0.0.4").mac = " \n";
    EXPECT_EQ(read("[node]\n"
                   "same=02:aa,10.0.0.1:4422\n"
                   "differs=02:aa,10.0.0.2:4422\n"
                   "lower=02:aa,10.0.0.3:4422\n"
                   "silent=02:aa,10.0.0.4:4422\n"
                   "absent=02:aa,10.0.0.5:65000\n"),
              "Line:3, differs: IP(10.0.0.2) and MAC(02:AA != 02:BB) are not matched!\n"
              "Line:4, lower: IP(10.0.0.3) and MAC(02:AA != 02:aa) are not matched!\n"
              "Line:6, Can not connect to absent. (10.0.0.5:65000)\n");
    EXPECT_EQ(errors.getSize(static_cast<CONFIGERROR_LEVEL>(1)), 3);
    EXPECT_EQ(context.getNodeMap().size(), 5U);
}

TEST_F(NodeFile, KeepsTheFirstOfTwoNodesOfOneNameAndTheOrderOfFindings) {
    AgentsByAddress::at("10.0.0.2");
    EXPECT_EQ(read("[node]\n"
                   "a=m,10.0.0.1:1\n"
                   "bad\n"
                   "b=m,10.0.0.2:1\n"
                   "a=m,10.0.0.3:3\n"
                   "a=m,10.0.0.2:2\n"
                   "[group]\n"
                   "g=ghost\n"
                   "[node]\n"
                   "c=m,10.0.0.4:4\n"),
              "Line:2, Can not connect to a. (10.0.0.1:1)\n"
              "Line:3, Invalid format: bad\n"
              "Line:5, Can not connect to a. (10.0.0.3:3)\n"
              "Line:5, Error! Node name \"a\" has been used.\n"
              "Line:6, Error! Node name \"a\" has been used.\n"
              "Line:8, \"ghost\" is not defined for group \"g\".\n"
              "Line:10, Can not connect to c. (10.0.0.4:4)\n");
    EXPECT_EQ(levelOf(0), 1);
    EXPECT_EQ(levelOf(1), 2);
    EXPECT_EQ(nodes(), "a=M,10.0.0.1:1\nb=M,10.0.0.2:1\nc=M,10.0.0.4:4\n");
}

TEST_F(NodeFile, KnowsTheNodesThatTheContextHeldBefore) {
    quietAgents();
    context.getNodeMap()["old"] = new CNode("old", "M", "10.0.0.1");
    EXPECT_EQ(read("[group]\ng=old\n[node]\nold=m,10.0.0.2:1\n"),
              "Line:4, Error! Node name \"old\" has been used.\n");
    EXPECT_EQ(groups(), "g=old,\n");
}

TEST_F(NodeFile, ReadsALongLineInPiecesOf511Characters) {
    quietAgents();
    const std::string padding(511 - std::string("n1=m,10.0.0.1:1").size(), ' ');
    EXPECT_EQ(read("[node]\nn1=m,10.0.0.1:1" + padding + "rest\nbad\n"),
              "Line:3, Invalid format: rest\nLine:4, Invalid format: bad\n");
    EXPECT_EQ(nodes(), "n1=M,10.0.0.1:1\n");
}

TEST_F(NodeFile, RecordsAFileThatCannotBeRead) {
    const TempDir directory;
    const std::string name = directory.file("none.cfg");
    CShellConfigReader::readNodeConfig(name.c_str(), context, &errors);
    EXPECT_EQ(errors.toString(), "Can not open file \"" + name +
                                     "\"! Please make sure that it exists and can be read.\n");
    EXPECT_EQ(levelOf(0), 2);
}

TEST_F(NodeFile, ReadsTheFileByName) {
    quietAgents();
    const TempDir directory;
    writeFile(directory.file("node.cfg"), "[node]\nn1=m,10.0.0.1:1");
    CShellConfigReader::readNodeConfig(directory.file("node.cfg").c_str(), context, &errors);
    EXPECT_EQ(errors.toString(), "");
    EXPECT_EQ(nodes(), "n1=M,10.0.0.1:1\n");
}

namespace {

struct Addition {
    const char* what;
    const char* before;
    const char* after;  // null: left byte for byte, and nothing is printed
};

void PrintTo(const Addition& addition, std::ostream* out) {
    *out << addition.what;
}

}  // namespace

// The node n5 with MAC 02:00:00:00:00:05 at 10.0.0.5:77 is added.
class NodeAddition : public testing::TestWithParam<Addition> {
protected:
    TempDir directory;
    CShellExecutionContext context;
};

TEST_P(NodeAddition, EndsTheNodeSection) {
    const std::string name = directory.file("node.cfg");
    writeFile(name, GetParam().before);
    ASSERT_EQ(chmod(name.c_str(), 0640), 0);
    context.setNodeCfgFileName(name);
    CNode node("n5", "02:00:00:00:00:05", "10.0.0.5", 77);
    const std::string printed =
        printedBy([&] { CShellConfigReader::addNodeIntoConfig(context, &node); });
    if (GetParam().after == nullptr) {
        EXPECT_EQ(readFile(name), GetParam().before);
        EXPECT_EQ(printed, "");
    } else {
        EXPECT_EQ(readFile(name), GetParam().after);
    }
    EXPECT_FALSE(std::filesystem::exists(name + ".tmp"));
    struct stat status {};
    ASSERT_EQ(stat(name.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640U);
}

#define N5 "n5=02:00:00:00:00:05,10.0.0.5:77\n"

INSTANTIATE_TEST_SUITE_P(
    CShellConfigReaderContract, NodeAddition,
    testing::Values(
        Addition{"at the end", "[node]\nn1=M,10.0.0.1:1\n", "[node]\nn1=M,10.0.0.1:1\n" N5},
        Addition{"before the groups", "#c\n[node]\nn1=M,10.0.0.1:1\n\n[group]\ng=n1\n",
                 "#c\n[node]\nn1=M,10.0.0.1:1\n\n" N5 "[group]\ng=n1\n"},
        Addition{"once before the first of several groups",
                 "[node]\nn1=M,10.0.0.1:1\n[group]\ng=n1\n[group]\nh=n1\n",
                 "[node]\nn1=M,10.0.0.1:1\n" N5 "[group]\ng=n1\n[group]\nh=n1\n"},
        Addition{"not before groups above the nodes", "[group]\n[node]\nn1=M,10.0.0.1:1\n",
                 "[group]\n[node]\nn1=M,10.0.0.1:1\n" N5},
        Addition{"behind groups above the nodes", "[group]\n[node]\n[group]\n",
                 "[group]\n[node]\n" N5 "[group]\n"},
        Addition{"behind a last line without newline", "[node]\nn1=M,10.0.0.1:1",
                 "[node]\nn1=M,10.0.0.1:1\n" N5},
        Addition{"with a header of its own", "# nothing yet\n", "# nothing yet\n[node]\n" N5},
        Addition{"into an empty file", "", "[node]\n" N5},
        Addition{"a comment does not hold the address", "# 10.0.0.5\n[node]\n",
                 "# 10.0.0.5\n[node]\n" N5},
        Addition{"there already", "[node]\nn5=02:00:00:00:00:05,10.0.0.5:4422\n", nullptr},
        Addition{"there already under another name and no newline",
                 "[node]\nx=02:00:00:00:00:05,10.0.0.5:1", nullptr},
        Addition{"another address begins with it and the name differs",
                 "[node]\nn50=02:00:00:00:00:50,10.0.0.50:1\n[group]\n",
                 // The line holds the name n5 as well, so its MAC is what gets corrected.
                 "[node]\nn50=02:00:00:00:00:05,10.0.0.50:1\n[group]\n"},
        Addition{"another node's longer address", "[node]\nx=02:00:00:00:00:50,10.0.0.50:1\n",
                 nullptr},
        Addition{"a wrong MAC is corrected", "[node]\nn5=AA:00:00:00:00:99,10.0.0.5:1 #x\n",
                 "[node]\nn5=02:00:00:00:00:05,10.0.0.5:1 #x\n"}));

TEST(CShellConfigReaderContract, TellsWhatItAdded) {
    const TempDir directory;
    const std::string name = directory.file("node.cfg");
    writeFile(name, "[node]\n");
    CShellExecutionContext context;
    context.setNodeCfgFileName(name);
    CNode node("n5", "02:00:00:00:00:05", "10.0.0.5");
    EXPECT_EQ(printedBy([&] { CShellConfigReader::addNodeIntoConfig(context, &node); }),
              "Add a new node:10.0.0.5 in " + name + "\n");
    EXPECT_EQ(readFile(name), "[node]\nn5=02:00:00:00:00:05,10.0.0.5:4422\n");
}

TEST(CShellConfigReaderContract, TellsWhichFileItCannotOpenAndLeavesTheOther) {
    const TempDir directory;
    const std::string name = directory.file("node.cfg");
    CShellExecutionContext context;
    context.setNodeCfgFileName(name);
    CNode node("n5", "02:00:00:00:00:05", "10.0.0.5");
    const auto expectPrinted = [](const std::string& printed, const std::string& file) {
        const std::string expected = "Fail to open: " + file;
        EXPECT_EQ(printed.substr(0, expected.size()), expected);
        EXPECT_LE(printed.size(), expected.size() + 1) << printed;
    };
    const auto adding = [&] { CShellConfigReader::addNodeIntoConfig(context, &node); };
    const auto correcting = [&] { CShellConfigReader::correctNodeConfig(context, &node); };
    expectPrinted(printedBy(adding), name);
    expectPrinted(printedBy(correcting), name);
    EXPECT_FALSE(std::filesystem::exists(name));

    std::filesystem::create_directory(name + ".tmp");
    writeFile(name, "[node]\n");
    expectPrinted(printedBy(adding), name + ".tmp");
    expectPrinted(printedBy(correcting), name + ".tmp");
    EXPECT_EQ(readFile(name), "[node]\n");
}

TEST(CShellConfigReaderContract, CorrectsTheMacOfEveryLineWithNameAndAddress) {
    const TempDir directory;
    const std::string name = directory.file("node.cfg");
    writeFile(name,
              "# n5 stands at 10.0.0.5\n"
              "[node]\n"
              "n4=AA:00:00:00:00:04,10.0.0.5:1\n"
              "n5=AA:00:00:00:00:05,10.0.0.6:1\n"
              "n5=AA:00:00:00:00:05,10.0.0.5:1\n"
              "[group]\n"
              "g=n5");
    CShellExecutionContext context;
    context.setNodeCfgFileName(name);
    CNode node("n5", "02:00:00:00:00:ff", "10.0.0.5", 9);
    CShellConfigReader::correctNodeConfig(context, &node);
    EXPECT_EQ(readFile(name),
              "# n5 stands at 10.0.0.5\n"
              "[node]\n"
              "n4=AA:00:00:00:00:04,10.0.0.5:1\n"
              "n5=AA:00:00:00:00:05,10.0.0.6:1\n"
              "n5=02:00:00:00:00:ff,10.0.0.5:1\n"
              "[group]\n"
              "g=n5");
    EXPECT_FALSE(std::filesystem::exists(name + ".tmp"));
}
