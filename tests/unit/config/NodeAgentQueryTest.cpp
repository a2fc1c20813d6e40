#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

#include <gtest/gtest.h>

#include "NodeAgentQuery.h"

namespace {

class NodeAgentQueryTest : public testing::Test {
protected:
    std::vector<const CNode*> makeNodes(int count) {
        std::vector<const CNode*> pointers;
        for (int index = 0; index < count; ++index) {
            nodes.push_back(std::make_unique<CNode>("n" + std::to_string(index), "m"));
            pointers.push_back(nodes.back().get());
        }
        return pointers;
    }

    std::vector<std::unique_ptr<CNode>> nodes;
};

}  // namespace

TEST_F(NodeAgentQueryTest, AnswersInTheOrderOfTheNodes) {
    const std::vector<NodeAgentAnswer> answers =
        askNodeAgents(makeNodes(500), [](const CNode& node) {
            return NodeAgentAnswer{true, "mac of " + node.getName()};
        });
    ASSERT_EQ(500U, answers.size());
    for (std::size_t index = 0; index < answers.size(); ++index) {
        EXPECT_EQ("mac of n" + std::to_string(index), answers[index].mac);
        EXPECT_TRUE(answers[index].connected);
    }
}

TEST_F(NodeAgentQueryTest, AsksNobodyForAnEmptyList) {
    EXPECT_TRUE(askNodeAgents({}, [](const CNode&) -> NodeAgentAnswer {
                    ADD_FAILURE() << "asked";
                    return {};
                }).empty());
}

TEST_F(NodeAgentQueryTest, AsksUpTo64AtOnceAndNoMore) {
    std::mutex lock;
    std::condition_variable changed;
    std::size_t running = 0;
    std::size_t most = 0;
    bool opened = false;
    askNodeAgents(makeNodes(200), [&](const CNode&) {
        std::unique_lock<std::mutex> guard(lock);
        most = std::max(most, ++running);
        opened = opened || running == kMaxAgentQueries;
        changed.notify_all();
        // All of them must be able to wait for one another; the limit only ends a failing test.
        changed.wait_for(guard, std::chrono::seconds(20), [&] { return opened; });
        --running;
        return NodeAgentAnswer{};
    });
    EXPECT_TRUE(opened);
    EXPECT_EQ(kMaxAgentQueries, most);
}

TEST_F(NodeAgentQueryTest, AsksOnTheCallersThreadAloneWhereOneAtOnceIsWanted) {
    const std::thread::id caller = std::this_thread::get_id();
    const std::vector<NodeAgentAnswer> answers = askNodeAgents(
        makeNodes(20),
        [caller](const CNode& node) {
            return NodeAgentAnswer{std::this_thread::get_id() == caller, node.getName()};
        },
        1);
    ASSERT_EQ(20U, answers.size());
    for (std::size_t index = 0; index < answers.size(); ++index) {
        EXPECT_TRUE(answers[index].connected);
        EXPECT_EQ("n" + std::to_string(index), answers[index].mac);
    }
}

TEST_F(NodeAgentQueryTest, CountsAnExceptionAsNotConnected) {
    const std::vector<NodeAgentAnswer> answers = askNodeAgents(makeNodes(3), [](const CNode& node) {
        if (node.getName() == "n1") {
            throw std::string("anything");
        }
        return NodeAgentAnswer{true, "m"};
    });
    EXPECT_TRUE(answers[0].connected);
    EXPECT_FALSE(answers[1].connected);
    EXPECT_EQ("", answers[1].mac);
    EXPECT_TRUE(answers[2].connected);
}

TEST_F(NodeAgentQueryTest, WaitsForNoQueryThatNeverEnds) {
    // Shared with the thread that is given up.
    struct Latch {
        std::mutex mutex;
        std::condition_variable changed;
        bool isOpen = false;
        bool isPassed = false;
    };
    const auto latch = std::make_shared<Latch>();
    const unsigned int before = abandonedAgentQueries();
    const std::vector<NodeAgentAnswer> answers = askNodeAgents(
        makeNodes(3),
        [latch](const CNode& node) {
            if (node.getName() == "n1") {
                std::unique_lock<std::mutex> lock(latch->mutex);
                latch->changed.wait(lock, [&] { return latch->isOpen; });
                latch->isPassed = true;
                latch->changed.notify_all();
            }
            return NodeAgentAnswer{true, "m"};
        },
        kMaxAgentQueries, std::chrono::milliseconds(200));
    EXPECT_TRUE(answers[0].connected);
    EXPECT_FALSE(answers[1].connected);
    EXPECT_TRUE(answers[2].connected);
    EXPECT_LT(before, abandonedAgentQueries());
    std::unique_lock<std::mutex> lock(latch->mutex);
    latch->isOpen = true;
    latch->changed.notify_all();
    EXPECT_TRUE(
        latch->changed.wait_for(lock, std::chrono::seconds(20), [&] { return latch->isPassed; }));
}
