#include <memory>

#include "CAlreadyExistException.h"
#include "CNode.h"
#include "CNodeGroup.h"
#include "Contract.h"

TEST(CNodeContract, TakesTheMacBeforeTheAddress) {
    const CNode full(std::string("n1"), "AA", "10.0.0.1", 4294967295U);
    EXPECT_EQ(full.getName(), "n1");
    EXPECT_EQ(full.getMac(), "AA");
    EXPECT_EQ(full.getIp(), "10.0.0.1");
    EXPECT_EQ(full.getPort(), 4294967295U);
    const CNode three("n1", "AA", "10.0.0.1");
    EXPECT_EQ(three.getMac(), "AA");
    EXPECT_EQ(three.getIp(), "10.0.0.1");
    EXPECT_EQ(three.getPort(), 4422U);
    const CNode two("n1", "AA");
    EXPECT_EQ(two.getMac(), "AA");
    EXPECT_EQ(two.getIp(), "");
    EXPECT_EQ(two.getPort(), 4422U);
}

TEST(CNodeContract, SettersReplaceExactlyOneFieldAsGiven) {
    CNode node("n", "m", "i", 1);
    node.setMac(" aa ");
    node.setIp("h");
    node.setPort(0U);
    EXPECT_EQ(node.getName(), "n");
    EXPECT_EQ(node.getMac(), " aa ");
    EXPECT_EQ(node.getIp(), "h");
    EXPECT_EQ(node.getPort(), 0U);
}

TEST(CNodeContract, AssignmentCopiesAllFieldsTheNameToo) {
    const CNode source("a", "m", "i", 7);
    CNode target("b", "x");
    CNode& returned = (target = source);
    EXPECT_EQ(&returned, &target);
    EXPECT_EQ(target.getName() + target.getMac() + target.getIp(), "ami");
    EXPECT_EQ(target.getPort(), 7U);
    const CNode& self = target;
    target = self;
    EXPECT_EQ(target.getName() + target.getMac() + target.getIp(), "ami");
}

TEST(CNodeGroupContract, RefusesASecondMemberOfTheSameNameAndKeepsOrder) {
    CNodeGroup group("g");
    EXPECT_EQ(group.getName(), "g");
    CNode n2("n2", "");
    CNode n1("n1", "A");
    CNode otherN1("n1", "B");
    CNode upperN1("N1", "");
    group.addNode(&n2);
    group.addNode(&n1);
    EXPECT_EQ(messageOf<CAlreadyExistException>([&] { group.addNode(&otherN1); }),
              "The node n1 already exists!");
    EXPECT_EQ(messageOf<CAlreadyExistException>([&] { group.addNode(&n1); }),
              "The node n1 already exists!");
    group.addNode(&upperN1);
    EXPECT_EQ(asVector(group.getNodes()), (std::vector<CNode*>{&n2, &n1, &upperN1}));

    CNodeGroup a("a");
    CNodeGroup otherA("a");
    CNodeGroup upperA("A");
    group.addGroup(&a);
    EXPECT_EQ(messageOf<CAlreadyExistException>([&] { group.addGroup(&otherA); }),
              "The group a already exists!");
    group.addGroup(&upperA);
    EXPECT_EQ(asVector(group.getNodeGroups()), (std::vector<CNodeGroup*>{&a, &upperA}));
}

TEST(CNodeGroupContract, NodesAndGroupsDoNotShareNames) {
    CNodeGroup group("g");
    CNode node("x", "");
    CNodeGroup member("x");
    group.addNode(&node);
    EXPECT_NO_THROW(group.addGroup(&member));
}

TEST(CNodeGroupContract, RemovesByPointerEveryEntry) {
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
    EXPECT_EQ(asVector(group.getNodes()), (std::vector<CNode*>{&n2}));

    CNodeGroup a("a");
    CNodeGroup strangerA("a");
    group.addGroup(&a);
    group.getNodeGroups().push_back(&a);
    group.removeGroup(&strangerA);
    EXPECT_EQ(group.getNodeGroups().size(), 2U);
    group.removeGroup(&a);
    EXPECT_TRUE(group.getNodeGroups().empty());

    group.addGroup(&a);
    group.removeAllNodes();
    EXPECT_TRUE(group.getNodes().empty());
    EXPECT_EQ(group.getNodeGroups().size(), 1U);
    group.removeAllGroups();
    EXPECT_TRUE(group.getNodeGroups().empty());
}

TEST(CNodeGroupContract, LeavesItsMembersAliveWhenItDies) {
    CNode node("n", "M");
    CNodeGroup member("m");
    auto group = std::make_unique<CNodeGroup>("g");
    group->addNode(&node);
    group->addGroup(&member);
    group.reset();
    EXPECT_EQ(node.getMac(), "M");
    EXPECT_EQ(member.getName(), "m");
}

TEST(CNodeGroupContract, ReportsACycleByTheNameOfTheGroupAskedAbout) {
    CNodeGroup g("g");
    g.addGroup(&g);
    EXPECT_EQ(messageOf<CAlreadyExistException>([&] { g.startCheckingRecursiveReference(); }),
              "Error! group \"g\" has recursive reference.");

    CNodeGroup g1("g1");
    CNodeGroup g2("g2");
    g1.addGroup(&g2);
    g2.addGroup(&g1);
    EXPECT_EQ(messageOf<CAlreadyExistException>([&] { g1.startCheckingRecursiveReference(); }),
              "Error! group \"g1\" has recursive reference.");
    EXPECT_EQ(messageOf<CAlreadyExistException>([&] { g2.startCheckingRecursiveReference(); }),
              "Error! group \"g2\" has recursive reference.");
}

TEST(CNodeGroupContract, FindsACycleBehindADeepBranchAndByIdentityOnly) {
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
    EXPECT_EQ(messageOf<CAlreadyExistException>([&] { top.startCheckingRecursiveReference(); }),
              "Error! group \"top\" has recursive reference.");
    // Asked of another group: whether top can be reached from there.
    EXPECT_NO_THROW(left.checkRecursiveReference(&top));
    EXPECT_EQ(messageOf<CAlreadyExistException>([&] { right.checkRecursiveReference(&top); }),
              "Error! group \"top\" has recursive reference.");
}

TEST(CNodeGroupContract, PassesTheCheckWithoutGroups) {
    CNodeGroup group("g");
    CNode node("g", "");
    group.addNode(&node);
    EXPECT_NO_THROW(group.startCheckingRecursiveReference());
    EXPECT_NO_THROW(group.checkRecursiveReference(&group));
}
