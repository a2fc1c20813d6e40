#include <algorithm>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "CShellCommandSet_BIOSFW.h"
#include "CShellCommandSet_FlashBIOS.h"
#include "FirmwareNode.h"
#include "ShellFixture.h"

namespace {

// The engine with the sets as start-up registers them, and many real agents.
class FirmwareOnManyNodesTest : public EngineFixture {
protected:
    void SetUp() override {
        EngineFixture::SetUp();
        context->addCommandSet(new CShellCommandSet_FlashBIOS);
        context->addCommandSet(new CShellCommandSet_BIOSFW);
        context->toRootLevel();
    }

    void startNodes(int count) {
        for (int number = 0; number < count; ++number) {
            std::string name = std::to_string(number);
            name.insert(0, 4 - name.size(), '0');
            name = "node_" + name;
            nodes.push_back(std::make_unique<FirmwareNode>(cluster, name));
            context->getNodeMap()[name] = new CNode(*nodes.back()->target());
            targets += (targets.empty() ? "" : ",") + name;
            names.push_back(name);
        }
    }

    // The result block of a node, from its label to the next one's.
    std::string blockOf(const std::string& name) const {
        const std::string::size_type begin = output.find("[" + name + "] (");
        if (begin == std::string::npos) {
            return "no block of " + name;
        }
        const std::string::size_type text = output.find("ms)\n", begin) + 4;
        const std::string::size_type end = output.find("\n[node_", text);
        return output.substr(text, end == std::string::npos ? end : end - text);
    }

    static std::string image(const std::string& mark) {
        std::string content = mark;
        for (int byte = 0; byte < 100000; ++byte) {
            content += static_cast<char>(byte * 7 + byte / 256);
        }
        return content;
    }

    // Every line of the waiting message stands alone on its line, once for each node.
    void expectWholeLines(const std::string& last) {
        std::istringstream printed(output);
        std::vector<std::string> ends;
        std::string before;
        for (std::string line; std::getline(printed, line); before = line) {
            if (line.find("Don't power off") != std::string::npos) {
                EXPECT_EQ("Please wait for flashing BIOS firmware....", before);
                ends.push_back(line);
            }
        }
        std::sort(ends.begin(), ends.end());
        std::vector<std::string> expected;
        for (const std::string& name : names) {
            expected.push_back(last + " [" + name + "]");
        }
        EXPECT_EQ(expected, ends);
    }

    FirmwareCluster cluster;
    std::vector<std::unique_ptr<FirmwareNode>> nodes;
    std::vector<std::string> names;
    std::string targets;
};

constexpr char kLastLine[] = "Don't power off the system or remove AC power!";

}  // namespace

TEST_F(FirmwareOnManyNodesTest, SixteenChipsEqualTheImage) {
    startNodes(16);
    const std::string content = image("R3BIOS");
    const std::string file = cluster.write("image.bin", content);
    context->toLowerLevel("r3biosfw");
    EXPECT_EQ(0, execute("flash bios fw -f " + file + " -n " + targets, "y"));
    EXPECT_NE(output.find("Do you really want to flash the BIOS for 16 node(s)? [Yes/No]"),
              std::string::npos);
    expectWholeLines(kLastLine);
    for (std::size_t number = 0; number < nodes.size(); ++number) {
        EXPECT_TRUE(nodes[number]->hardware("chip") == content) << names[number];
        EXPECT_EQ(
            0U,
            blockOf(names[number])
                .rfind("BIOS firmware image file " + file + " has been successfully flashed.\n", 0))
            << blockOf(names[number]);
    }
}

TEST_F(FirmwareOnManyNodesTest, BlocksSayWhatBecameOfEachNode) {
    startNodes(8);
    const std::string content = image("R3BIOS");
    const std::string file = cluster.write("image.bin", content);
    const std::string before = nodes[1]->hardware("chip");
    nodes[1]->tell("romflash", "fail");
    nodes[2]->tell("romflash", "garbage");
    nodes[4]->tell("romflash", "hang");
    nodes[6]->tell("romflash", "hang");
    std::thread cutter([this] {
        EXPECT_TRUE(nodes[4]->waitUntilHanging("romflash"));
        for (const pid_t session : nodes[4]->kelnode().processes("kelnode-session")) {
            ::kill(session, SIGKILL);
        }
    });
    EXPECT_EQ(0, execute("/r3biosfw/flash bios fw -f " + file + " -t 15000 -n " + targets, "y"));
    cutter.join();

    const std::string failed = "ExitCode:2/";
    const std::string message = "summary: Failed to flash BIOS firmware image file " + file + ".";
    for (const int number : {1, 2}) {
        EXPECT_EQ(0U, blockOf(names[number]).rfind(failed, 0)) << blockOf(names[number]);
        EXPECT_NE(blockOf(names[number]).find(message), std::string::npos);
        EXPECT_EQ(before, nodes[number]->hardware("chip"));
    }
    EXPECT_EQ(0U, blockOf(names[4]).rfind(failed, 0)) << blockOf(names[4]);
    EXPECT_NE(blockOf(names[4]).find("lost"), std::string::npos) << blockOf(names[4]);
    EXPECT_EQ(0U, blockOf(names[6]).rfind("ExitCode:5/", 0)) << blockOf(names[6]);
    for (const int number : {0, 3, 5, 7}) {
        EXPECT_NE(blockOf(names[number]).find("has been successfully flashed."), std::string::npos)
            << blockOf(names[number]);
        EXPECT_TRUE(nodes[number]->hardware("chip") == content);
    }

    // Neither the lost nor the late flash was cut short.
    for (const int number : {4, 6}) {
        nodes[number]->release();
        EXPECT_TRUE(waitFor([&] { return nodes[number]->hardware("chip") == content; }))
            << names[number];
    }
}

TEST_F(FirmwareOnManyNodesTest, OneNameInTwoSetsIsFoundByLevelAndByPath) {
    startNodes(1);
    const std::string file = cluster.write("image.bin", "R2BIOS R3BIOS");
    const std::string line = "flash bios fw -f " + file + " -n " + targets;
    context->toLowerLevel("biosfw");
    EXPECT_EQ(0, execute(line, "y"));
    EXPECT_NE(output.find("WARNING: This can overwrite your current BIOS and CMOS!\n"
                          "Do you really want to flash the BIOS for 1 node(s)? [Yes/No]"),
              std::string::npos);
    EXPECT_EQ("flashrom [-w] [" + file + "]", nodes[0]->takeCalls().back());
    context->toUpperLevel();
    EXPECT_EQ(0, execute("r3biosfw/" + line, "y"));
    EXPECT_EQ("romflash [-w] [" + file + "]", nodes[0]->takeCalls().back());
    EXPECT_EQ(0, execute("/biosfw/" + line, "y"));
    EXPECT_EQ("flashrom [-w] [" + file + "]", nodes[0]->takeCalls().back());
}

TEST_F(FirmwareOnManyNodesTest, NothingIsFlashedWithoutAYes) {
    startNodes(2);
    const std::string file = cluster.write("image.bin", "R3BIOS");
    context->toLowerLevel("r3biosfw");
    for (const char* answer : {"n", "N", "", "?n"}) {
        EXPECT_EQ(1, execute("flash bios fw -f " + file + " -n " + targets, answer)) << answer;
        EXPECT_NE(output.find("is canceled for 2 node(s)."), std::string::npos) << answer;
    }
    for (const auto& node : nodes) {
        EXPECT_TRUE(node->takeCalls().empty());
    }
}

TEST_F(FirmwareOnManyNodesTest, FileGoesToAllNodesAndComesBackWhole) {
    startNodes(8);
    const std::string content = image("any file");
    const std::string file = cluster.write("any file.bin", content);
    EXPECT_EQ(0, execute("save file -f \"" + file + "\" -t 20000 -n " + targets));
    for (const auto& node : nodes) {
        EXPECT_TRUE(LocalAgent::read(node->onNode(file)) == content);
    }
    // All write to one local path: the result is the whole file of one of them.
    for (std::size_t number = 0; number < nodes.size(); ++number) {
        std::ofstream(nodes[number]->onNode(file), std::ios::binary)
            << std::string(200000, static_cast<char>('a' + number));
    }
    EXPECT_EQ(0, execute("get file -f \"" + file + "\" -t 20000 -n " + targets));
    const std::string fetched = LocalAgent::read(file);
    ASSERT_EQ(200000U, fetched.size());
    EXPECT_EQ(std::string::npos, fetched.find_first_not_of(fetched.front()));
    for (const std::string& name : names) {
        EXPECT_EQ(0U,
                  blockOf(name).rfind("File \"" + file + "\" already exists in local site!\n", 0));
        EXPECT_NE(blockOf(name).find("\nOver write the original file."), std::string::npos);
    }
}
