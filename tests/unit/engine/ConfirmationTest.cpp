// The questions before a command runs on nodes, byte for byte.
#include <algorithm>
#include <fcntl.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ResultBlocks.h"
#include "ShellFixture.h"
#include "UniqueFd.h"

namespace {

class Confirmation : public EngineFixture {
protected:
    void SetUp() override {
        EngineFixture::SetUp();
        addNodes(3);
        slave->setCommandConfirmMessage("Sure?");
    }
    std::vector<std::string> nodesReached() {
        std::vector<std::string> names;
        for (const ScriptedSet::Call& call : set->calls()) {
            names.push_back(call.node);
        }
        std::sort(names.begin(), names.end());
        return names;
    }
};

const std::string onceAsked = "Sure for 3 node(s)? [Yes/No]\n";

std::string block(const std::string& name) {
    return "[" + name + "] (ms)\nthere on " + name + "\n";
}

TEST_F(Confirmation, OnceYes) {
    slave->setCommandConfirmType(ONCE);
    for (const char* yes : {"y", "Y"}) {
        EXPECT_EQ(0, execute("there -n n1,n2,n3", yes));
        EXPECT_EQ(withoutTimes(output), onceAsked + block("n1") + block("n2") + block("n3"));
    }
}

TEST_F(Confirmation, OnceAsksUntilItIsAnAnswer) {
    slave->setCommandConfirmType(ONCE);
    EXPECT_EQ(0, execute("there -n n1,n2,n3", "c\n y"));
    EXPECT_EQ(withoutTimes(output), onceAsked + onceAsked + onceAsked + onceAsked + block("n1") +
                                        block("n2") + block("n3"));
}

TEST_F(Confirmation, OnceWithoutAMessageUsesTheDefault) {
    slave->setCommandConfirmMessage("");
    slave->setCommandConfirmType(ONCE);
    execute("there -n n2", "n");
    EXPECT_EQ(
        "Do you really want to execute this command for 1 node(s)? [Yes/No]\n"
        "Command \"there\" is canceled for 1 node(s).\n",
        withoutTimes(output));
}

TEST_F(Confirmation, OnlyOneQuestionMarkGoes) {
    slave->setCommandConfirmMessage("What??");
    slave->setCommandConfirmType(ONCE);
    execute("there -n n2", "n");
    EXPECT_THAT(output, ::testing::StartsWith("What? for 1 node(s)? [Yes/No]\n"));
    slave->setCommandConfirmMessage("Plain.");
    execute("there -n n2", "n");
    EXPECT_THAT(output, ::testing::StartsWith("Plain. for 1 node(s)? [Yes/No]\n"));
}

std::string eachAsked(const std::string& name) {
    return "Sure for " + name + "? [Yes/No/Cancel]\n";
}

struct Answers {
    std::string keys;
    std::string spoken;
    std::vector<std::string> reached;
    int status;
};

class ConfirmationOfEach : public Confirmation, public ::testing::WithParamInterface<Answers> {};

TEST_P(ConfirmationOfEach, AsksForEveryNode) {
    slave->setCommandConfirmType(EACH);
    EXPECT_EQ(GetParam().status, execute("there -n n1,n2,n3", GetParam().keys));
    EXPECT_EQ(GetParam().spoken, withoutTimes(output));
    EXPECT_EQ(GetParam().reached, nodesReached());
    EXPECT_TRUE(request->isValidCommand());
}

const std::string all3 = eachAsked("n1") + eachAsked("n2") + eachAsked("n3");

std::string declined(const std::string& who) {
    return "Command \"there\" is canceled for " + who + ".\n";
}

INSTANTIATE_TEST_SUITE_P(
    Keys, ConfirmationOfEach,
    ::testing::Values(
        Answers{"yYy", all3 + block("n1") + block("n2") + block("n3"), {"n1", "n2", "n3"}, 0},
        Answers{"yc",
                eachAsked("n1") + eachAsked("n2") + declined("2 node(s)") + block("n1"),
                {"n1"},
                0},
        Answers{"nny",
                eachAsked("n1") + declined("n1") + eachAsked("n2") + declined("n2") +
                    eachAsked("n3") + block("n3"),
                {"n3"},
                0},
        Answers{"NnN",
                eachAsked("n1") + declined("n1") + eachAsked("n2") + declined("n2") +
                    eachAsked("n3") + declined("n3"),
                {},
                7},
        Answers{"C", eachAsked("n1") + declined("3 node(s)"), {}, 7},
        // Declined nodes are not started: they count.
        Answers{"nyc",
                eachAsked("n1") + declined("n1") + eachAsked("n2") + eachAsked("n3") +
                    declined("2 node(s)") + block("n2"),
                {"n2"},
                0},
        Answers{"xy\tyc",
                eachAsked("n1") + eachAsked("n1") + eachAsked("n2") + eachAsked("n2") +
                    eachAsked("n3") + declined("1 node(s)") + block("n1") + block("n2"),
                {"n1", "n2"},
                0},
        Answers{"y",
                eachAsked("n1") + eachAsked("n2") + declined("2 node(s)") + block("n1"),
                {"n1"},
                0}));

TEST_F(Confirmation, SetsConfirmationIsInherited) {
    set->setCommandSetConfirmType(ONCE);
    set->setCommandSetConfirmMessage("All of lab?");
    slave->setCommandConfirmType(INHERITANCE);
    execute("there -n n1", "n");
    EXPECT_EQ("All of lab for 1 node(s)? [Yes/No]\nCommand \"there\" is canceled for 1 node(s).\n",
              withoutTimes(output));
}

TEST_F(Confirmation, OnceNo) {
    slave->setCommandConfirmMessage("");
    slave->setCommandConfirmType(ONCE);
    for (const char* no : {"n", "N", ""}) {
        EXPECT_EQ(1, execute("there -n n1,n2", no));
        EXPECT_EQ(
            "Do you really want to execute this command for 2 node(s)? [Yes/No]\n"
            "Command \"there\" is canceled for 2 node(s).\n",
            output);
        EXPECT_FALSE(request->isExecuted());
        EXPECT_TRUE(request->isValidCommand());
    }
    EXPECT_TRUE(set->calls().empty());
}

TEST_F(Confirmation, EveryNodeDeclinedGivesSeven) {
    slave->setCommandConfirmType(EACH);
    EXPECT_EQ(7, execute("there -n n1,n2", "nN"));
    EXPECT_TRUE(request->isExecuted());
    EXPECT_TRUE(set->calls().empty());
}

TEST_F(Confirmation, EarlierNodesRunWhileLaterPromptsAreAsked) {
    slave->setCommandConfirmType(EACH);
    int ends[2];
    ASSERT_EQ(0, ::pipe2(ends, O_CLOEXEC));
    const UniqueFd readEnd(ends[0]);
    const UniqueFd writeEnd(ends[1]);
    const StandardInput typed(readEnd.get());
    // The answer for the second node is only typed by the first one's worker.
    set->behaviour = [&](const auto& call, CResult& result) {
        if (call.node == "n1") {
            EXPECT_EQ(1, ::write(writeEnd.get(), "y", 1));
        }
        result.setRunSummary("ok");
    };
    ASSERT_EQ(1, ::write(writeEnd.get(), "y", 1));
    EXPECT_EQ(0, execute("there -n n1,n2"));
    EXPECT_EQ(2U, set->calls().size());
}

}  // namespace
