#include <gtest/gtest.h>

#include "CNode.h"

TEST(CNode, TakesTheMacBeforeTheIp) {
    const CNode node("n1", "02:00:00:AA:BB:01", "192.168.10.1", 5000);
    EXPECT_EQ("n1", node.getName());
    EXPECT_EQ("02:00:00:AA:BB:01", node.getMac());
    EXPECT_EQ("192.168.10.1", node.getIp());
    EXPECT_EQ(5000U, node.getPort());
}

TEST(CNode, DefaultsToTheAgentsPort) {
    const CNode node("n1", "mac", "ip");
    EXPECT_EQ("ip", node.getIp());
    EXPECT_EQ(4422U, node.getPort());
}

TEST(CNode, MayLackAnAddress) {
    const CNode node("n1", "mac");
    EXPECT_EQ("mac", node.getMac());
    EXPECT_EQ("", node.getIp());
    EXPECT_EQ(4422U, node.getPort());
}

TEST(CNode, SettersReplaceAllButTheName) {
    CNode node("n1", "mac", "ip");
    node.setMac("other mac");
    node.setIp("other ip");
    node.setPort(7);
    EXPECT_EQ("n1", node.getName());
    EXPECT_EQ("other mac", node.getMac());
    EXPECT_EQ("other ip", node.getIp());
    EXPECT_EQ(7U, node.getPort());
}

TEST(CNode, AssignmentCopiesAllFields) {
    const CNode source("n1", "mac", "ip", 9);
    CNode target("n2", "x", "y", 1);
    target = source;
    EXPECT_EQ("n1", target.getName());
    EXPECT_EQ("mac", target.getMac());
    EXPECT_EQ("ip", target.getIp());
    EXPECT_EQ(9U, target.getPort());
}

TEST(CNode, AssignmentToItselfChangesNothing) {
    CNode node("n1", "mac", "ip", 9);
    const CNode& same = node;
    node = same;
    EXPECT_EQ("n1", node.getName());
    EXPECT_EQ("mac", node.getMac());
    EXPECT_EQ("ip", node.getIp());
    EXPECT_EQ(9U, node.getPort());
}
