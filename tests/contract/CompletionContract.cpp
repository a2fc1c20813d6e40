#include "CShellCommandSet.h"
#include "CShellExecutionContext.h"
#include "CShellExecutionContextAutoCompleteAdapter.h"
#include "Contract.h"

namespace {

CShellCommandSet* set(const char* name, const Words& commands) {
    auto* made = new CShellCommandSet(name, "");
    for (const std::string& command : commands) {
        made->addSupportedCommand(new CShellCommand(command, "", "line", SCRIPT, SLAVE));
    }
    return made;
}

class Completing : public testing::Test {
protected:
    Completing() {
        context.addCommandSet(set("zeta", {"zap"}));
        context.addCommandSet(set("BASIC", {"list node", "list", "help"}));
        CShellCommandSet* tools = set("tools", {"uptime", "usage", "list all"});
        for (const char* child : {"disk", "data", "d"}) {
            tools->addChildCommand(set(child, {}));
        }
        context.addCommandSet(tools);
        context.addCommandSet(set("toolsmith", {}));
        context.addCommandSet(set("cdset", {"cd deep", "x"}));
    }
    Words offered(std::string typed) { return asVector(adapter.getPossibleCommandList(typed)); }

    CShellExecutionContext context;
    CShellExecutionContextAutoCompleteAdapter adapter{&context};
};

}  // namespace

TEST_F(Completing, OffersBasicCommandsAtTheRoot) {
    EXPECT_EQ(offered(""), (Words{"help", "list", "list node"}));
    EXPECT_EQ(offered("list"), (Words{"list", "list node"}));
    EXPECT_EQ(offered("list "), (Words{"list node"}));
    EXPECT_EQ(offered("L"), Words{});
    EXPECT_EQ(offered("z"), Words{});
    EXPECT_EQ(offered("cd"), Words{});
}

TEST_F(Completing, OffersTheLevelsCommandsAndThenBasicOnes) {
    context.toLowerLevel("tools");
    EXPECT_EQ(offered(""), (Words{"list all", "uptime", "usage", "help", "list", "list node"}));
    EXPECT_EQ(offered("list"), (Words{"list all", "list", "list node"}));
    EXPECT_EQ(offered("u"), (Words{"uptime", "usage"}));
    EXPECT_EQ(offered("h"), (Words{"help"}));
}

TEST_F(Completing, OffersSetsBehindCd) {
    EXPECT_EQ(offered("cd "), (Words{"zeta", "tools", "toolsmith", "cdset"}));
    EXPECT_EQ(offered("cd t"), (Words{"tools", "toolsmith"}));
    EXPECT_EQ(offered("cd tools"), (Words{"toolsmith"}));
    EXPECT_EQ(offered("cd toolsmith"), Words{});
    EXPECT_EQ(offered("cd B"), Words{});
    EXPECT_EQ(offered("cd  t"), Words{});
    EXPECT_EQ(offered("cd T"), Words{});
    context.toLowerLevel("tools");
    EXPECT_EQ(offered("cd "), (Words{"disk", "data", "d"}));
    EXPECT_EQ(offered("cd d"), (Words{"disk", "data"}));
    context.toLowerLevel("disk");
    EXPECT_EQ(offered("cd "), Words{});
}

TEST_F(Completing, OffersNoSetsWhenACommandBeginsLikeThat) {
    context.toLowerLevel("cdset");
    EXPECT_EQ(offered("cd d"), (Words{"cd deep"}));
    EXPECT_EQ(offered("cd "), (Words{"cd deep"}));
}

TEST_F(Completing, OffersBasicCommandsOnceInsideBasic) {
    context.toLowerLevel("BASIC");
    EXPECT_EQ(offered(""), (Words{"help", "list", "list node"}));
    EXPECT_EQ(offered("cd "), Words{});
}

TEST(CompletionContract, OffersNothingWithoutSets) {
    CShellExecutionContext context;
    CShellExecutionContextAutoCompleteAdapter adapter(&context);
    EXPECT_TRUE(adapter.getPossibleCommandList("").empty());
    EXPECT_TRUE(adapter.getPossibleCommandList("cd ").empty());
}
