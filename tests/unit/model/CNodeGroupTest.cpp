#include <memory>

#include "CAlreadyExistException.h"
#include "CNode.h"
#include "CNodeGroup.h"
#include "Observed.h"

TEST(CNodeGroup, RefusesASecondMemberOfTheSameNameAndKeepsOrder) {
    CNodeGroup group("g");
    EXPECT_EQ("g", group.getName());
    CNode n2("n2", "");
    CNode n1("n1", "A");
    CNode otherN1("n1", "B");
    CNode upperN1("N1", "");
    group.addNode(&n2);
    group.addNode(&n1);
    EXPECT_EQ("The node n1 already exists!",
              messageOf<CAlreadyExistException>([&] { group.addNode(&otherN1); }));
    EXPECT_EQ("The node n1 already exists!",
              messageOf<CAlreadyExistException>([&] { group.addNode(&n1); }));
    group.addNode(&upperN1);
    EXPECT_EQ((std::vector<CNode*>{&n2, &n1, &upperN1}), asVector(group.getNodes()));

    CNodeGroup a("a");
    CNodeGroup otherA("a");
    CNodeGroup upperA("A");
    group.addGroup(&a);
    EXPECT_EQ("The group a already exists!",
              messageOf<CAlreadyExistException>([&] { group.addGroup(&otherA); }));
    group.addGroup(&upperA);
    EXPECT_EQ((std::vector<CNodeGroup*>{&a, &upperA}), asVector(group.getNodeGroups()));
}

TEST(CNodeGroup, NodesAndGroupsDoNotShareNames) {
    CNodeGroup group("g");
    CNode node("x", "");
    CNodeGroup member("x");
    group.addNode(&node);
    EXPECT_NO_THROW(group.addGroup(&member));
}

TEST(CNodeGroup, RemovesByPointerEveryEntry) {
    CNodeGroup group("g");
    CNode n1("n1", "");
    CNode n2("n2", "");
    CNode strangerN2("n2", "");
    group.addNode(&n1);
    group.addNode(&n2);
    group.getNodes().push_back(&n1);
    group.removeNode(&n1);
    group.removeNode(&strangerN2);
    group.removeNode(nullptr);
    EXPECT_EQ((std::vector<CNode*>{&n2}), asVector(group.getNodes()));

    CNodeGroup a("a");
    CNodeGroup strangerA("a");
    group.addGroup(&a);
    group.getNodeGroups().push_back(&a);
    group.removeGroup(&strangerA);
    EXPECT_EQ(2U, group.getNodeGroups().size());
    group.removeGroup(&a);
    EXPECT_TRUE(group.getNodeGroups().empty());

    group.addGroup(&a);
    group.removeAllNodes();
    EXPECT_TRUE(group.getNodes().empty());
    EXPECT_EQ(1U, group.getNodeGroups().size());
    group.removeAllGroups();
    EXPECT_TRUE(group.getNodeGroups().empty());
}

TEST(CNodeGroup, LeavesItsMembersAliveWhenItDies) {
    CNode node("n", "M");
    CNodeGroup member("m");
    auto group = std::make_unique<CNodeGroup>("g");
    group->addNode(&node);
    group->addGroup(&member);
    group.reset();
    EXPECT_EQ("M", node.getMac());
    EXPECT_EQ("m", member.getName());
}

TEST(CNodeGroup, ReportsACycleByTheNameOfTheGroupAskedAbout) {
    CNodeGroup g("g");
    g.addGroup(&g);
    EXPECT_EQ("Error! group \"g\" has recursive reference.",
              messageOf<CAlreadyExistException>([&] { g.startCheckingRecursiveReference(); }));

    CNodeGroup g1("g1");
    CNodeGroup g2("g2");
    g1.addGroup(&g2);
    g2.addGroup(&g1);
    EXPECT_EQ("Error! group \"g1\" has recursive reference.",
              messageOf<CAlreadyExistException>([&] { g1.startCheckingRecursiveReference(); }));
    EXPECT_EQ("Error! group \"g2\" has recursive reference.",
              messageOf<CAlreadyExistException>([&] { g2.startCheckingRecursiveReference(); }));
}

TEST(CNodeGroup, FindsACycleBehindADeepBranchAndByIdentityOnly) {
    CNodeGroup top("top");
    CNodeGroup left("left");
    CNodeGroup leaf("leaf");
    CNodeGroup right("right");
    top.addGroup(&left);
    left.addGroup(&leaf);
    top.addGroup(&right);
    right.addGroup(&leaf);
    EXPECT_NO_THROW(top.startCheckingRecursiveReference());
    CNodeGroup namesake("top");
    left.addGroup(&namesake);
    EXPECT_NO_THROW(top.startCheckingRecursiveReference());
    right.addGroup(&top);
    EXPECT_EQ("Error! group \"top\" has recursive reference.",
              messageOf<CAlreadyExistException>([&] { top.startCheckingRecursiveReference(); }));
    // Asked of another group: whether top can be reached from there.
    EXPECT_NO_THROW(left.checkRecursiveReference(&top));
    EXPECT_EQ("Error! group \"top\" has recursive reference.",
              messageOf<CAlreadyExistException>([&] { right.checkRecursiveReference(&top); }));
}

TEST(CNodeGroup, PassesTheCheckWithoutGroups) {
    CNodeGroup group("g");
    CNode node("g", "");
    group.addNode(&node);
    EXPECT_NO_THROW(group.startCheckingRecursiveReference());
    EXPECT_NO_THROW(group.checkRecursiveReference(&group));
}

TEST(CNodeGroup, ListsAreTheLiveOnes) {
    CNodeGroup group("g");
    EXPECT_EQ(&group.getNodes(), &group.getNodes());
    EXPECT_EQ(&group.getNodeGroups(), &group.getNodeGroups());
}
