// The master that started a flash goes away in the middle of it.

#include <gtest/gtest.h>

#include "FirmwareNode.h"
#include "MasterShell.h"

namespace {

class FirmwareMasterTest : public testing::Test {
protected:
    void beginFlash() {
        file = cluster.write("image.bin", "R3BIOS " + std::string(100000, 'x'));
        node.tell("romflash", "hang");
        master.start({}, "r3biosfw flash bios fw -f " + file + " -n node -t 600000\ny\n");
        ASSERT_TRUE(node.waitUntilHanging("romflash")) << master.output();
    }

    void expectFlashed() {
        node.tell("romflash", "");
        node.release();
        EXPECT_TRUE(waitFor([&] { return node.hardware("chip") == LocalAgent::read(file); }));
        EXPECT_TRUE(waitFor([&] { return node.plainTools().empty(); }));
        EXPECT_TRUE(waitFor([&] { return node.kelnode().records().empty(); }));
    }

    FirmwareCluster cluster;
    FirmwareNode node{cluster, "node"};
    MasterShell master{node.kelnode()};
    std::string file;
};

}  // namespace

TEST_F(FirmwareMasterTest, FlashCompletesWhenTheMasterIsKilled) {
    beginFlash();
    master.kill();
    EXPECT_EQ(128 + SIGKILL, master.wait());
    // The next master finds out what is going on instead of flashing as well.
    MasterShell other(node.kelnode());
    other.start({}, "r3biosfw flash bios fw -f " + file + " -n node -t 20000\ny\n");
    EXPECT_EQ(2, other.wait()) << other.output();
    EXPECT_NE(other.output().find("romflash"), std::string::npos) << other.output();
    expectFlashed();
}

TEST_F(FirmwareMasterTest, FlashCompletesWhenTheMastersTimeOutHasPassed) {
    file = cluster.write("image.bin", "R3BIOS short");
    node.tell("romflash", "hang");
    master.start({}, "r3biosfw flash bios fw -f " + file + " -n node -t 2000\ny\n");
    EXPECT_EQ(5, master.wait()) << master.output();
    expectFlashed();
}
