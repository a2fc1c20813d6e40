#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "ConnectGate.h"

namespace {

using Clock = ConnectGate::Clock;

Clock::time_point in(std::chrono::milliseconds time) {
    return Clock::now() + time;
}

TEST(ConnectGate, LetsNoMoreThanItsWidthThroughAtOnce) {
    ConnectGate gate(4, std::chrono::seconds(60));
    std::atomic<int> inside{0};
    std::atomic<int> most{0};
    std::atomic<int> passed{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 100; ++i) {
        threads.emplace_back([&] {
            const ConnectGate::Turn turn(gate, in(std::chrono::seconds(60)));
            const int now = ++inside;
            int seen = most;
            while (now > seen && !most.compare_exchange_weak(seen, now)) {
            }
            std::this_thread::yield();
            --inside;
            ++passed;
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(100, passed);
    EXPECT_LE(most, 4);
}

TEST(ConnectGate, GoesAheadAtTheDeadline) {
    ConnectGate gate(1, std::chrono::seconds(60));
    const ConnectGate::Turn first(gate, in(std::chrono::seconds(60)));
    const Clock::time_point deadline = in(std::chrono::milliseconds(50));
    const ConnectGate::Turn second(gate, deadline);
    EXPECT_GE(Clock::now(), deadline);
}

TEST(ConnectGate, DoesNotCountATurnForLongerThanItsTime) {
    ConnectGate gate(1);
    const Clock::time_point begin = Clock::now();
    const ConnectGate::Turn silentNode(gate, in(std::chrono::seconds(60)));
    const ConnectGate::Turn next(gate, in(std::chrono::seconds(60)));
    EXPECT_GE(Clock::now(), begin + ConnectGate::kTurn);
    EXPECT_LT(Clock::now(), begin + std::chrono::seconds(30));
}

TEST(ConnectGate, GivesAFreedPlaceToTheNextInLine) {
    ConnectGate gate(1, std::chrono::seconds(60));
    auto first = std::make_unique<ConnectGate::Turn>(gate, in(std::chrono::seconds(60)));
    std::atomic<bool> through{false};
    std::thread waiting([&] {
        const ConnectGate::Turn second(gate, in(std::chrono::seconds(60)));
        through = true;
    });
    first.reset();
    waiting.join();
    EXPECT_TRUE(through);
}

}  // namespace
