#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CAlreadyExistException.h"
#include "CNodeGroup.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

template <class Action>
std::string messageOf(Action action) {
    try {
        action();
    } catch (const CAlreadyExistException& error) {
        return error.getErrMsg();
    }
    return "nothing was thrown";
}

}  // namespace

TEST(CNodeGroup, KeepsMembersInTheOrderAdded) {
    CNode first("n2", "m");
    CNode second("n1", "m");
    CNodeGroup inner("inner");
    CNodeGroup other("a");
    CNodeGroup group("g");
    group.addNode(&first);
    group.addNode(&second);
    group.addGroup(&inner);
    group.addGroup(&other);
    EXPECT_EQ("g", group.getName());
    EXPECT_THAT(group.getNodes(), ElementsAre(&first, &second));
    EXPECT_THAT(group.getNodeGroups(), ElementsAre(&inner, &other));
}

TEST(CNodeGroup, RefusesAnotherNodeOfTheSameName) {
    CNode first("n1", "m");
    CNode second("n1", "other");
    CNodeGroup group("g");
    group.addNode(&first);
    EXPECT_EQ("The node n1 already exists!", messageOf([&] { group.addNode(&second); }));
    EXPECT_EQ("The node n1 already exists!", messageOf([&] { group.addNode(&first); }));
    EXPECT_THAT(group.getNodes(), ElementsAre(&first));
}

TEST(CNodeGroup, RefusesAnotherGroupOfTheSameName) {
    CNodeGroup first("inner");
    CNodeGroup second("inner");
    CNodeGroup group("g");
    group.addGroup(&first);
    EXPECT_EQ("The group inner already exists!", messageOf([&] { group.addGroup(&second); }));
    EXPECT_THAT(group.getNodeGroups(), ElementsAre(&first));
}

TEST(CNodeGroup, TellsNamesApartByCase) {
    CNode lower("n1", "m");
    CNode upper("N1", "m");
    CNodeGroup group("g");
    group.addNode(&lower);
    group.addNode(&upper);
    EXPECT_THAT(group.getNodes(), ElementsAre(&lower, &upper));
}

TEST(CNodeGroup, ReportsAGroupThatHoldsItself) {
    CNodeGroup group("g");
    group.addGroup(&group);
    EXPECT_EQ("Error! group \"g\" has recursive reference.",
              messageOf([&] { group.startCheckingRecursiveReference(); }));
}

TEST(CNodeGroup, ReportsTheGroupOnWhichTheCheckStarted) {
    CNodeGroup first("g1");
    CNodeGroup second("g2");
    first.addGroup(&second);
    second.addGroup(&first);
    EXPECT_EQ("Error! group \"g1\" has recursive reference.",
              messageOf([&] { first.startCheckingRecursiveReference(); }));
    EXPECT_EQ("Error! group \"g2\" has recursive reference.",
              messageOf([&] { second.startCheckingRecursiveReference(); }));
}

TEST(CNodeGroup, FindsTheTargetBehindAnotherMember) {
    CNodeGroup target("target");
    CNodeGroup deep("deep");
    CNodeGroup leaf("leaf");
    CNodeGroup group("g");
    group.addGroup(&leaf);
    group.addGroup(&deep);
    deep.addGroup(&target);
    EXPECT_EQ("Error! group \"target\" has recursive reference.",
              messageOf([&] { group.checkRecursiveReference(&target); }));
    EXPECT_NO_THROW(group.checkRecursiveReference(&group));
}

TEST(CNodeGroup, PassesTheCheckWithoutNestedGroups) {
    CNode node("g", "m");
    CNodeGroup group("g");
    group.addNode(&node);
    EXPECT_NO_THROW(group.startCheckingRecursiveReference());
}

TEST(CNodeGroup, RemovesEveryEntryEqualToThePointer) {
    CNode node("n1", "m");
    CNode twin("n1", "m");
    CNodeGroup inner("inner");
    CNodeGroup group("g");
    group.getNodes() = {&node, &twin, &node};
    group.getNodeGroups() = {&inner, &inner};
    group.removeNode(&node);
    group.removeGroup(&inner);
    EXPECT_THAT(group.getNodes(), ElementsAre(&twin));
    EXPECT_THAT(group.getNodeGroups(), IsEmpty());
}

TEST(CNodeGroup, RemovingAStrangerChangesNothing) {
    CNode node("n1", "m");
    CNode stranger("n1", "m");
    CNodeGroup other("other");
    CNodeGroup group("g");
    group.addNode(&node);
    group.removeNode(&stranger);
    group.removeGroup(&other);
    EXPECT_THAT(group.getNodes(), ElementsAre(&node));
}

TEST(CNodeGroup, EmptiesItsLists) {
    CNode node("n1", "m");
    CNodeGroup inner("inner");
    CNodeGroup group("g");
    group.addNode(&node);
    group.addGroup(&inner);
    group.removeAllNodes();
    EXPECT_THAT(group.getNodes(), IsEmpty());
    EXPECT_THAT(group.getNodeGroups(), ElementsAre(&inner));
    group.removeAllGroups();
    EXPECT_THAT(group.getNodeGroups(), IsEmpty());
}

TEST(CNodeGroup, LeavesItsMembersAlive) {
    CNode node("n1", "m");
    CNodeGroup inner("inner");
    {
        const auto group = std::make_unique<CNodeGroup>("g");
        group->addNode(&node);
        group->addGroup(&inner);
    }
    EXPECT_EQ("n1", node.getName());
    EXPECT_EQ("inner", inner.getName());
}
