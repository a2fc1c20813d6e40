#include "CShellCommandSet.h"
#include "CShellExecutionContext.h"
#include "CShellExecutionContextAutoCompleteAdapter.h"
#include "Observed.h"

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
        context.addCommandSet(basic);
        CShellCommandSet* tools = set("tools", {"uptime", "usage", "list all"});
        for (const char* child : {"disk", "data", "d"}) {
            tools->addChildCommand(set(child, {}));
        }
        context.addCommandSet(tools);
        context.addCommandSet(set("toolsmith", {}));
        context.addCommandSet(set("cdset", {"cd deep", "x"}));
    }
    Words offered(std::string typed) { return asVector(adapter.getPossibleCommandList(typed)); }

    CShellCommandSet* basic = set("BASIC", {"list node", "list", "help"});
    CShellExecutionContext context;
    CShellExecutionContextAutoCompleteAdapter adapter{&context};
};

}  // namespace

TEST_F(Completing, OffersBasicCommandsAtTheRoot) {
    EXPECT_EQ((Words{"help", "list", "list node"}), offered(""));
    EXPECT_EQ((Words{"list", "list node"}), offered("list"));
    EXPECT_EQ((Words{"list node"}), offered("list "));
    EXPECT_EQ(Words{}, offered("L"));
    EXPECT_EQ(Words{}, offered("z"));
    EXPECT_EQ(Words{}, offered("cd"));
}

TEST_F(Completing, OffersTheLevelsCommandsAndThenBasicOnes) {
    context.toLowerLevel("tools");
    EXPECT_EQ((Words{"list all", "uptime", "usage", "help", "list", "list node"}), offered(""));
    EXPECT_EQ((Words{"list all", "list", "list node"}), offered("list"));
    EXPECT_EQ((Words{"uptime", "usage"}), offered("u"));
    EXPECT_EQ((Words{"help"}), offered("h"));
}

TEST_F(Completing, OffersSetsBehindCd) {
    EXPECT_EQ((Words{"zeta", "tools", "toolsmith", "cdset"}), offered("cd "));
    EXPECT_EQ((Words{"tools", "toolsmith"}), offered("cd t"));
    EXPECT_EQ((Words{"toolsmith"}), offered("cd tools"));
    EXPECT_EQ(Words{}, offered("cd toolsmith"));
    EXPECT_EQ(Words{}, offered("cd B"));
    EXPECT_EQ(Words{}, offered("cd  t"));
    EXPECT_EQ(Words{}, offered("cd T"));
    context.toLowerLevel("tools");
    EXPECT_EQ((Words{"disk", "data", "d"}), offered("cd "));
    EXPECT_EQ((Words{"disk", "data"}), offered("cd d"));
    context.toLowerLevel("disk");
    EXPECT_EQ(Words{}, offered("cd "));
}

TEST_F(Completing, OffersNoSetsWhenACommandBeginsLikeThat) {
    context.toLowerLevel("cdset");
    EXPECT_EQ((Words{"cd deep"}), offered("cd d"));
    EXPECT_EQ((Words{"cd deep"}), offered("cd "));
}

TEST_F(Completing, OffersBasicCommandsOnceInsideBasic) {
    context.toLowerLevel("BASIC");
    EXPECT_EQ((Words{"help", "list", "list node"}), offered(""));
    EXPECT_EQ(Words{}, offered("cd "));
}

TEST(CShellExecutionContextAutoCompleteAdapter, OffersNothingWithoutSets) {
    CShellExecutionContext context;
    CShellExecutionContextAutoCompleteAdapter adapter(&context);
    EXPECT_TRUE(adapter.getPossibleCommandList("").empty());
    EXPECT_TRUE(adapter.getPossibleCommandList("cd ").empty());
}

TEST_F(Completing, OffersCommandsOnlyWhereOneBeginsWithCd) {
    basic->addSupportedCommand(new CShellCommand("cd tower", "", "line", SCRIPT, SLAVE));
    EXPECT_EQ((Words{"cd tower"}), offered("cd to"));
    EXPECT_EQ((Words{"zeta"}), offered("cd z"));
}

TEST_F(Completing, AppendsBasicCommandsBehindTheSets) {
    basic->addSupportedCommand(new CShellCommand("cd disk drive", "", "line", SCRIPT, SLAVE));
    context.toLowerLevel("tools");
    EXPECT_EQ((Words{"disk", "data", "cd disk drive"}), offered("cd d"));
}

TEST_F(Completing, KeepsDuplicates) {
    context.addCommandSet(set("more", {"list"}));
    context.toLowerLevel("more");
    EXPECT_EQ((Words{"list", "list", "list node"}), offered("list"));
}
