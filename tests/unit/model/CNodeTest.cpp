#include "CNode.h"
#include "Observed.h"

TEST(CNode, TakesTheMacBeforeTheAddress) {
    const CNode full(std::string("n1"), "AA", "10.0.0.1", 4294967295U);
    EXPECT_EQ("n1", full.getName());
    EXPECT_EQ("AA", full.getMac());
    EXPECT_EQ("10.0.0.1", full.getIp());
    EXPECT_EQ(4294967295U, full.getPort());
    const CNode three("n1", "AA", "10.0.0.1");
    EXPECT_EQ("AA", three.getMac());
    EXPECT_EQ("10.0.0.1", three.getIp());
    EXPECT_EQ(4422U, three.getPort());
    const CNode two("n1", "AA");
    EXPECT_EQ("AA", two.getMac());
    EXPECT_EQ("", two.getIp());
    EXPECT_EQ(4422U, two.getPort());
}

TEST(CNode, SettersReplaceExactlyOneFieldAsGiven) {
    CNode node("n", "m", "i", 1);
    node.setMac(" aa ");
    node.setIp("h");
    node.setPort(0U);
    EXPECT_EQ("n", node.getName());
    EXPECT_EQ(" aa ", node.getMac());
    EXPECT_EQ("h", node.getIp());
    EXPECT_EQ(0U, node.getPort());
}

TEST(CNode, AssignmentCopiesAllFieldsTheNameToo) {
    const CNode source("a", "m", "i", 7);
    CNode target("b", "x");
    CNode& returned = (target = source);
    EXPECT_EQ(&returned, &target);
    EXPECT_EQ("ami", target.getName() + target.getMac() + target.getIp());
    EXPECT_EQ(7U, target.getPort());
    const CNode& self = target;
    target = self;
    EXPECT_EQ("ami", target.getName() + target.getMac() + target.getIp());
}
