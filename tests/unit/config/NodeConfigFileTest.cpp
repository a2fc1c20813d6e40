#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CException.h"
#include "CNodeGroup.h"
#include "CShellExecutionContext.h"
#include "ConfigErrorCollector.h"
#include "NodeConfigFile.h"
#include "NodeWarning.h"
#include "TextStream.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// Nodes whose agents answer from a table; every node that is not in it reports its own address.
class NodeConfigFileTest : public testing::Test {
protected:
    void read(const std::string& text) {
        const TextStream stream(text);
        NodeConfigFile(context, &errors, [this](const CNode& node) {
            const auto answer = answers.find(node.getMac());
            return answer != answers.end() ? answer->second : NodeAgentAnswer{true, node.getMac()};
        }).read(stream.get());
    }

    std::vector<std::string> faults() const {
        std::vector<std::string> texts;
        for (const ConfigError* error : errors.getErrorList()) {
            texts.push_back(std::to_string(error->getLevel()) + ":" + error->toString());
        }
        return texts;
    }

    std::list<std::string> nodeNames() {
        std::list<std::string> names;
        for (const auto& entry : context.getNodeMap()) {
            names.push_back(entry.first);
        }
        return names;
    }

    // "g=member,member" for each group, nodes before groups.
    std::list<std::string> groups() {
        std::list<std::string> texts;
        for (CNodeGroup* group : context.getNodeGroupList()) {
            std::string text = group->getName() + "=";
            for (CNode* node : group->getNodes()) {
                text += node->getName() + ",";
            }
            for (CNodeGroup* inner : group->getNodeGroups()) {
                text += "[" + inner->getName() + "],";
            }
            texts.push_back(text);
        }
        return texts;
    }

    CShellExecutionContext context;
    ConfigErrorCollector errors;
    std::map<std::string, NodeAgentAnswer> answers;  // by the configured MAC
};

}  // namespace

TEST_F(NodeConfigFileTest, ReadsNodesAndGroups) {
    read(
        "# cluster\n"
        "\n"
        "[node]\n"
        "node01=02:00:00:aa:bb:01,192.168.10.1:4422\n"
        "node02=02:00:00:AA:BB:02,host.domain:5000\n"
        "[group]\n"
        "rack1=node01,node02\n"
        "all=rack1,node02\n");
    EXPECT_THAT(faults(), IsEmpty());
    EXPECT_THAT(nodeNames(), ElementsAre("node01", "node02"));
    CNode* node = context.getNodeMap()["node01"];
    EXPECT_EQ("node01", node->getName());
    EXPECT_EQ("02:00:00:AA:BB:01", node->getMac());
    EXPECT_EQ("192.168.10.1", node->getIp());
    EXPECT_EQ(4422U, node->getPort());
    EXPECT_EQ("host.domain", context.getNodeMap()["node02"]->getIp());
    EXPECT_EQ(5000U, context.getNodeMap()["node02"]->getPort());
    EXPECT_THAT(groups(), ElementsAre("rack1=node01,node02,", "all=node02,[rack1],"));
}

TEST_F(NodeConfigFileTest, RefusesLinesBeforeAnySection) {
    read("node01=02:00:00:AA:BB:01,10.0.0.1:4422\n [node]\n[Node]\n[node] \n");
    EXPECT_THAT(
        faults(),
        ElementsAre("2:Line:1, Invalid line position: node01=02:00:00:AA:BB:01,10.0.0.1:4422",
                    "2:Line:2, Invalid line position:  [node]",
                    "2:Line:3, Invalid line position: [Node]",
                    "2:Line:4, Invalid line position: [node] "));
    EXPECT_THAT(nodeNames(), IsEmpty());
}

TEST_F(NodeConfigFileTest, RefusesANodeLineWithoutOneOfItsSeparators) {
    read(
        "[node]\n"
        "node01=02:00:00:AA:BB:01\n"
        "node02\n"
        "node03=02:00:00:AA:BB:03,10.0.0.3\n"
        "node04,10.0.0.4:4422\n"
        "node05,mac:1=x\n");
    EXPECT_THAT(faults(), ElementsAre("2:Line:2, Invalid format: node01=02:00:00:AA:BB:01",
                                      "2:Line:3, Invalid format: node02",
                                      "2:Line:4, Invalid format: node03=02:00:00:AA:BB:03,10.0.0.3",
                                      "2:Line:5, Invalid format: node04,10.0.0.4:4422",
                                      "2:Line:6, Invalid format: node05,mac:1=x"));
    EXPECT_THAT(nodeNames(), IsEmpty());
}

TEST_F(NodeConfigFileTest, SplitsAtTheFirstSeparatorsAndTrimsNothing) {
    read("[node]\n n = m=1 , i p :42:x,y\n=,:\n");
    EXPECT_THAT(faults(), IsEmpty());
    ASSERT_THAT(nodeNames(), ElementsAre("", " n "));
    CNode* node = context.getNodeMap()[" n "];
    EXPECT_EQ(" M=1 ", node->getMac());
    EXPECT_EQ(" i p ", node->getIp());
    EXPECT_EQ(42U, node->getPort());
    EXPECT_EQ(0U, context.getNodeMap()[""]->getPort());
}

TEST_F(NodeConfigFileTest, ConvertsThePortUpToTheFirstNonDigit) {
    read("[node]\na=m,i:44x22\nb=m,i:\nc=m,i:abc\nd=m,i:00070\n");
    EXPECT_THAT(faults(), IsEmpty());
    EXPECT_EQ(44U, context.getNodeMap()["a"]->getPort());
    EXPECT_EQ(0U, context.getNodeMap()["b"]->getPort());
    EXPECT_EQ(0U, context.getNodeMap()["c"]->getPort());
    EXPECT_EQ(70U, context.getNodeMap()["d"]->getPort());
}

TEST_F(NodeConfigFileTest, ComparesTheMacInUpperCase) {
    answers["02:00:00:AA:BB:01"] = {true, "02:00:00:AA:BB:01"};
    read("[node]\nnode01=02:00:00:aa:bb:01,10.0.0.1:4422\n");
    EXPECT_THAT(faults(), IsEmpty());
    EXPECT_EQ("02:00:00:AA:BB:01", context.getNodeMap()["node01"]->getMac());
}

TEST_F(NodeConfigFileTest, KeepsANodeThatCanNotBeReached) {
    answers["M1"] = {false, ""};
    read("[node]\nnode01=m1,10.0.0.1:4400\n[group]\ng=node01\n");
    EXPECT_THAT(faults(), ElementsAre("1:Line:2, Can not connect to node01. (10.0.0.1:4400)"));
    EXPECT_THAT(nodeNames(), ElementsAre("node01"));
    EXPECT_THAT(groups(), ElementsAre("g=node01,"));
}

TEST_F(NodeConfigFileTest, KeepsANodeThatReportsAnotherAddress) {
    answers["M1"] = {true, "m1"};
    read("[node]\nnode01=m1,10.0.0.1:4400\n");
    EXPECT_THAT(faults(),
                ElementsAre("1:Line:2, node01: IP(10.0.0.1) and MAC(M1 != m1) are not matched!"));
    EXPECT_THAT(nodeNames(), ElementsAre("node01"));
}

TEST_F(NodeConfigFileTest, HandsOverWhatItCouldNotReachAsValues) {
    answers["M1"] = {false, ""};
    answers["M2"] = {true, "other"};
    read("[node]\na=m1,i:1\nb=m2,i:2\nc=m3,i:3\nbroken\n");
    std::vector<std::string> found;
    for (const ConfigError* error : errors.getErrorList()) {
        const auto* warning = dynamic_cast<const NodeWarning*>(error);
        found.push_back(warning == nullptr ? "no node"
                                           : warning->getNodeName() +
                                                 (warning->isUnreachable() ? " is silent" : ""));
    }
    EXPECT_THAT(found, ElementsAre("a is silent", "b", "no node"));
}

TEST_F(NodeConfigFileTest, TrustsANodeThatReportsNoAddress) {
    answers["M1"] = {true, ""};
    read("[node]\nnode01=m1,10.0.0.1:4400\n");
    EXPECT_THAT(faults(), IsEmpty());
}

TEST_F(NodeConfigFileTest, TakesAnExceptionForALostConnection) {
    const TextStream stream("[node]\na=m,i:1\nb=m,i:2\n");
    NodeConfigFile(context, &errors, [](const CNode& node) -> NodeAgentAnswer {
        if (node.getName() == "a") {
            throw CException("refused");
        }
        throw 1;
    }).read(stream.get());
    EXPECT_THAT(faults(), ElementsAre("1:Line:2, Can not connect to a. (i:1)",
                                      "1:Line:3, Can not connect to b. (i:2)"));
}

TEST_F(NodeConfigFileTest, KeepsTheFirstOfTwoNodesOfOneName) {
    read("[node]\nnode01=m1,10.0.0.1:1\nnode01=m2,10.0.0.2:2\nNode01=m3,10.0.0.3:3\n");
    EXPECT_THAT(faults(), ElementsAre("2:Line:3, Error! Node name \"node01\" has been used."));
    EXPECT_THAT(nodeNames(), ElementsAre("Node01", "node01"));
    EXPECT_EQ("10.0.0.1", context.getNodeMap()["node01"]->getIp());
}

TEST_F(NodeConfigFileTest, AsksTheAgentOfARefusedNodeFirst) {
    answers["M2"] = {false, ""};
    read("[node]\nn=m1,i:1\nn=m2,i:2\n");
    EXPECT_THAT(faults(), ElementsAre("1:Line:3, Can not connect to n. (i:2)",
                                      "2:Line:3, Error! Node name \"n\" has been used."));
}

TEST_F(NodeConfigFileTest, RefusesAGroupNamedLikeANode) {
    read("[node]\nn=m,i:1\n[group]\nn=n\n");
    EXPECT_THAT(faults(), ElementsAre("2:Line:4, Group name \"n\" is ambiguous. There is already "
                                      "a node named \"n\" defined."));
    EXPECT_THAT(groups(), IsEmpty());
}

TEST_F(NodeConfigFileTest, RefusesAGroupLineWithoutMembers) {
    read("[group]\nrack1\nrack2=\nrack3=,,\n");
    EXPECT_THAT(faults(), ElementsAre("2:Line:2, Invalid format: rack1"));
    EXPECT_THAT(groups(), ElementsAre("rack2=", "rack3="));
}

TEST_F(NodeConfigFileTest, KnowsOnlyGroupsAbove) {
    read("[node]\nn=m,i:1\n[group]\nfirst=second\nself=n,self\nsecond=n\nthird=second\n");
    EXPECT_THAT(faults(), ElementsAre("2:Line:4, \"second\" is not defined for group \"first\".",
                                      "2:Line:5, \"self\" is not defined for group \"self\"."));
    EXPECT_THAT(groups(), ElementsAre("second=n,", "third=[second],"));
}

TEST_F(NodeConfigFileTest, ReportsEveryUndefinedMember) {
    read("[node]\nnode01=m,i:1\nnode02=m,i:1\n[group]\nrack1= node01 , node02\n");
    EXPECT_THAT(faults(), ElementsAre("2:Line:5, \" node01 \" is not defined for group \"rack1\".",
                                      "2:Line:5, \" node02\" is not defined for group \"rack1\"."));
    EXPECT_THAT(groups(), IsEmpty());
}

TEST_F(NodeConfigFileTest, SkipsEmptyMembers) {
    read("[node]\nnode01=m,i:1\nnode02=m,i:1\n[group]\nrack1=node01,,node02,\n");
    EXPECT_THAT(faults(), IsEmpty());
    EXPECT_THAT(groups(), ElementsAre("rack1=node01,node02,"));
}

TEST_F(NodeConfigFileTest, RecordsADuplicateMemberAndKeepsTheGroup) {
    read("[node]\nn=m,i:1\n[group]\na=n,n\nb=a,n,a\n");
    EXPECT_THAT(faults(), ElementsAre("2:Line:4, The node n already exists!",
                                      "2:Line:5, The group a already exists!"));
    EXPECT_THAT(groups(), ElementsAre("a=n,", "b=n,[a],"));
}

TEST_F(NodeConfigFileTest, TakesSectionsInAnyOrderAndMoreThanOnce) {
    read("[group]\nearly=n\n[node]\nn=m,i:1\n[group]\nlate=n\n[node]\nn2=m,i:1\n[group]\nl2=n2\n");
    EXPECT_THAT(faults(), ElementsAre("2:Line:2, \"n\" is not defined for group \"early\"."));
    EXPECT_THAT(nodeNames(), ElementsAre("n", "n2"));
    EXPECT_THAT(groups(), ElementsAre("late=n,", "l2=n2,"));
}

TEST_F(NodeConfigFileTest, RecordsAgentsBetweenTheOtherFaultsInFileOrder) {
    answers["M1"] = {false, ""};
    answers["M2"] = {true, "OTHER"};
    read("bad\n[node]\na=m1,i:1\nbad\nb=m2,i:2\n[group]\ng=x\n[node]\nc=m1,i:3\n");
    EXPECT_THAT(faults(), ElementsAre("2:Line:1, Invalid line position: bad",
                                      "1:Line:3, Can not connect to a. (i:1)",
                                      "2:Line:4, Invalid format: bad",
                                      "1:Line:5, b: IP(i) and MAC(M2 != OTHER) are not matched!",
                                      "2:Line:7, \"x\" is not defined for group \"g\".",
                                      "1:Line:9, Can not connect to c. (i:3)"));
}

TEST_F(NodeConfigFileTest, ReadsALastLineWithoutNewline) {
    read("[node]\nn=m,i:12");
    EXPECT_THAT(faults(), IsEmpty());
    EXPECT_EQ(12U, context.getNodeMap()["n"]->getPort());
}

TEST_F(NodeConfigFileTest, KeepsCarriageReturnsInTheText) {
    read("[node]\r\n[node]\nn=m,i:12\r\n");
    EXPECT_THAT(faults(), ElementsAre("2:Line:1, Invalid line position: [node]\r"));
    EXPECT_EQ(12U, context.getNodeMap()["n"]->getPort());
}

TEST_F(NodeConfigFileTest, TakesALineOf511BytesWhole) {
    const std::string line = "n=m,i:12" + std::string(503, 'x');
    ASSERT_EQ(511U, line.size());
    read("[node]\n" + line + "\nn2\n");
    // The newline of a full piece arrives as an empty line of its own.
    EXPECT_THAT(faults(), ElementsAre("2:Line:4, Invalid format: n2"));
    EXPECT_THAT(nodeNames(), ElementsAre("n"));
}

TEST_F(NodeConfigFileTest, CountsThePiecesOfALongerLine) {
    const std::string line = "n=m,i:12" + std::string(503, 'x');
    read("[node]\n" + line + "y\n" + line + "yz\nlast\n");
    EXPECT_THAT(faults(),
                ElementsAre("2:Line:3, Invalid format: y",
                            "2:Line:4, Error! Node name \"n\" has been used.",
                            "2:Line:5, Invalid format: yz", "2:Line:6, Invalid format: last"));
}

TEST_F(NodeConfigFileTest, SurvivesBinaryData) {
    std::string noise;
    for (int value = 0; value < 5000; ++value) {
        noise += static_cast<char>(value * 7919 >> 3);
    }
    read("[node]\n" + noise + "\n[group]\n" + noise + "\n[node]\nn=m,i:1\n");
    EXPECT_EQ(1U, context.getNodeMap().count("n"));
    EXPECT_GT(errors.getSize(), 0);
}

TEST_F(NodeConfigFileTest, ReadsAHugeFile) {
    std::string text = "[node]\n";
    for (int index = 0; index < 20000; ++index) {
        text += "node" + std::to_string(index) + "=m,i:1\n";
    }
    read(text);
    EXPECT_THAT(faults(), IsEmpty());
    EXPECT_EQ(20000U, context.getNodeMap().size());
}

TEST_F(NodeConfigFileTest, TakesALineForWhatItsSectionHolds) {
    read("[node]\nn:m,i:1\n # no comment\nn=m,i:1\n[group]\n[cmd]\nN=n\n");
    EXPECT_THAT(faults(), ElementsAre("2:Line:2, Invalid format: n:m,i:1",
                                      "2:Line:3, Invalid format:  # no comment",
                                      "2:Line:6, Invalid format: [cmd]"));
    EXPECT_THAT(groups(), ElementsAre("N=n,"));
}

TEST_F(NodeConfigFileTest, KnowsTheNodesThatTheContextHeldBefore) {
    context.getNodeMap()["old"] = new CNode("old", "M", "10.0.0.1");
    read("[group]\ng=old\n[node]\nold=m,10.0.0.2:1\n");
    EXPECT_THAT(faults(), ElementsAre("2:Line:4, Error! Node name \"old\" has been used."));
    EXPECT_THAT(groups(), ElementsAre("g=old,"));
    EXPECT_EQ("10.0.0.1", context.getNodeMap()["old"]->getIp());
}
