#include <boost/thread/thread.hpp>
#include <gtest/gtest.h>

#include "CCmdThreadResult.h"
#include "CCommandExecutionContext.h"
#include "CNode.h"
#include "CNodeGroup.h"
#include "CResult.h"

TEST(CCommandExecutionContext, StartsEmpty) {
    CCommandExecutionContext request;
    EXPECT_EQ("", request.getCommandRequest());
    EXPECT_TRUE(request.getNodeMap().empty());
    EXPECT_EQ(0U, request.getTimeOut());
    EXPECT_EQ(30000U, request.getDefaultTimeOut());
    EXPECT_FALSE(request.isExecuted());
    EXPECT_FALSE(request.isValidCommand());
}

TEST(CCommandExecutionContext, AddsTheNodesOfAGroupAndOfItsSubGroups) {
    CNode a("a", "", "");
    CNode b("b", "", "");
    CNode c("c", "", "");
    CNodeGroup inner("inner");
    CNodeGroup middle("middle");
    CNodeGroup outer("outer");
    inner.addNode(&c);
    inner.addNode(&a);
    middle.addGroup(&inner);
    outer.addGroup(&middle);
    outer.addNode(&b);
    outer.addNode(&a);
    CCommandExecutionContext request;
    request.addNodesAndGroups(&outer);
    std::string names;
    for (const auto& entry : request.getNodeMap()) {
        names += entry.first;
        EXPECT_EQ(entry.first, entry.second->getName());
    }
    EXPECT_EQ("abc", names);
    request.addNodesAndGroups(nullptr);
    EXPECT_EQ(3U, request.getNodeMap().size());
}

TEST(CCommandExecutionContext, GroupsThatHoldOneAnotherAreWalkedOnce) {
    CNode a("a", "", "");
    CNodeGroup one("one");
    CNodeGroup two("two");
    one.addGroup(&two);
    two.addGroup(&one);
    two.addNode(&a);
    CCommandExecutionContext request;
    request.addNodesAndGroups(&one);
    EXPECT_EQ(1U, request.getNodeMap().size());
}

TEST(CCommandExecutionContext, ResetEmptiesIt) {
    CNode a("a", "", "");
    CCommandExecutionContext request;
    request.setCommandRequest("list");
    request.addNode(&a);
    request.setTimeOut(7);
    request.setExecuted(true);
    request.setValidCommand(true);
    EXPECT_EQ("list", request.getCommandRequest());
    EXPECT_EQ(7U, request.getTimeOut());
    EXPECT_TRUE(request.isExecuted());
    EXPECT_TRUE(request.isValidCommand());
    request.reset();
    EXPECT_EQ("", request.getCommandRequest());
    EXPECT_TRUE(request.getNodeMap().empty());
    EXPECT_EQ(0U, request.getTimeOut());
    EXPECT_FALSE(request.isExecuted());
    EXPECT_FALSE(request.isValidCommand());
}

TEST(CCmdThreadResult, HoldsWhatItIsGivenAndOwnsNothing) {
    CNode node("a", "", "");
    CResult result;
    boost::thread thread;
    {
        const CCmdThreadResult record(&node, &thread, &result);
        EXPECT_EQ(&node, record.getNode());
        EXPECT_EQ(&thread, record.getThread());
        EXPECT_EQ(&result, record.getResult());
    }
    EXPECT_EQ("a", node.getName());
}
