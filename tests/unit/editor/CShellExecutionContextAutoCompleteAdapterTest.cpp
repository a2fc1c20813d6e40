#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CShellCommand.h"
#include "CShellCommandSet.h"
#include "CShellExecutionContext.h"
#include "CShellExecutionContextAutoCompleteAdapter.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class CShellExecutionContextAutoCompleteAdapterTest : public testing::Test {
protected:
    // The sets are added in an order that is not the alphabet's.
    void SetUp() override {
        tools = add("tools", {"uptime", "cat"});
        basic = add("BASIC", {"quit", "list node", "list", "cd"});
        add("ipmi", {"reset"});
        addChild("mem", {});
        addChild("disk", {"usage"});
        addChild("disk2", {});
    }

    CShellCommandSet* add(const std::string& name, std::initializer_list<const char*> commands) {
        CShellCommandSet* set = make(name, commands);
        context.addCommandSet(set);
        return set;
    }

    void addChild(const std::string& name, std::initializer_list<const char*> commands) {
        CShellCommandSet* set = make(name, commands);
        tools->addChildCommand(set);
        context.addCommandSet(set);
    }

    static CShellCommandSet* make(const std::string& name,
                                  std::initializer_list<const char*> commands) {
        auto* set = new CShellCommandSet(name, "text");
        for (const char* command : commands) {
            set->addSupportedCommand(new CShellCommand(command, "text", "true", SCRIPT, SLAVE));
        }
        return set;
    }

    std::list<std::string> offer(const std::string& typed) {
        return adapter.getPossibleCommandList(typed);
    }

    CShellExecutionContext context;
    CShellExecutionContextAutoCompleteAdapter adapter{&context};
    CShellCommandSet* tools = nullptr;
    CShellCommandSet* basic = nullptr;
};

}  // namespace

TEST_F(CShellExecutionContextAutoCompleteAdapterTest, OffersAllBasicCommandsAtTheRoot) {
    EXPECT_THAT(offer(""), ElementsAre("cd", "list", "list node", "quit"));
}

TEST_F(CShellExecutionContextAutoCompleteAdapterTest, OffersALevelsCommandsAndThenTheBasicOnes) {
    context.toLowerLevel("tools");
    EXPECT_THAT(offer(""), ElementsAre("cat", "uptime", "cd", "list", "list node", "quit"));
}

TEST_F(CShellExecutionContextAutoCompleteAdapterTest, OffersCommandsThatBeginWithTheText) {
    EXPECT_THAT(offer("li"), ElementsAre("list", "list node"));
    EXPECT_THAT(offer("list"), ElementsAre("list", "list node"));
    EXPECT_THAT(offer("list "), ElementsAre("list node"));
    EXPECT_THAT(offer("List"), IsEmpty());
    EXPECT_THAT(offer("uptime"), IsEmpty());
    context.toLowerLevel("tools");
    EXPECT_THAT(offer("c"), ElementsAre("cat", "cd"));
}

TEST_F(CShellExecutionContextAutoCompleteAdapterTest, OffersTheRootSetsAfterCd) {
    EXPECT_THAT(offer("cd "), ElementsAre("tools", "ipmi"));
    EXPECT_THAT(offer("cd to"), ElementsAre("tools"));
    EXPECT_THAT(offer("cd B"), IsEmpty());
}

TEST_F(CShellExecutionContextAutoCompleteAdapterTest, DoesNotOfferASetThatIsTypedOut) {
    EXPECT_THAT(offer("cd tools"), IsEmpty());
    context.toLowerLevel("tools");
    EXPECT_THAT(offer("cd disk"), ElementsAre("disk2"));
}

TEST_F(CShellExecutionContextAutoCompleteAdapterTest, OffersChildSetsBelowTheRoot) {
    context.toLowerLevel("tools");
    EXPECT_THAT(offer("cd "), ElementsAre("mem", "disk", "disk2"));
    EXPECT_THAT(offer("cd d"), ElementsAre("disk", "disk2"));
    EXPECT_THAT(offer("cd t"), IsEmpty());
}

TEST_F(CShellExecutionContextAutoCompleteAdapterTest, OffersCommandsOnlyWhereOneBeginsWithCd) {
    basic->addSupportedCommand(new CShellCommand("cd tower", "text", "true", SCRIPT, SLAVE));
    EXPECT_THAT(offer("cd to"), ElementsAre("cd tower"));
    EXPECT_THAT(offer("cd i"), ElementsAre("ipmi"));
}

TEST_F(CShellExecutionContextAutoCompleteAdapterTest, AppendsBasicCommandsBehindTheSets) {
    basic->addSupportedCommand(new CShellCommand("cd disk drive", "text", "true", SCRIPT, SLAVE));
    context.toLowerLevel("tools");
    EXPECT_THAT(offer("cd d"), ElementsAre("disk", "disk2", "cd disk drive"));
}

TEST_F(CShellExecutionContextAutoCompleteAdapterTest, DoesNotOfferBasicCommandsTwiceInTheirOwnSet) {
    context.toLowerLevel("BASIC");
    EXPECT_THAT(offer("l"), ElementsAre("list", "list node"));
    EXPECT_THAT(offer("cd "), IsEmpty());
}

TEST_F(CShellExecutionContextAutoCompleteAdapterTest, KeepsDuplicates) {
    add("more", {"list"});
    context.toLowerLevel("more");
    EXPECT_THAT(offer("list"), ElementsAre("list", "list", "list node"));
}

TEST(CShellExecutionContextAutoCompleteAdapter, OffersNothingInAnEmptyContext) {
    CShellExecutionContext context;
    CShellExecutionContextAutoCompleteAdapter adapter(&context);
    EXPECT_THAT(adapter.getPossibleCommandList(""), IsEmpty());
    EXPECT_THAT(adapter.getPossibleCommandList("cd "), IsEmpty());
}
