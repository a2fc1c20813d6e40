// The IPMI set with the real ipmitool and simulated controllers: what a command is meant to change
// must have changed.

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "BmcSimulator.h"
#include "CNode.h"
#include "CResult.h"
#include "CShellCommandSet_IPMI.h"
#include "CShellExecutionContext.h"
#include "TempDir.h"

namespace {

constexpr int kControllers = 8;
constexpr char kAten[] = "373030315a51000008090a0b0c0d0e0f";
constexpr char kChassisModule[] = "20000e40027f78080000000000000000";

class IpmiOverLan : public testing::Test {
protected:
    static void SetUpTestSuite() {
        directory = std::make_unique<TempDir>();
        controllers.resize(kControllers);
        std::vector<std::thread> starters;
        for (int i = 0; i < kControllers; ++i) {
            starters.emplace_back([i] {
                controllers[static_cast<std::size_t>(i)] =
                    std::make_unique<BmcSimulator>(address(i), i % 2 == 0 ? kAten : kChassisModule,
                                                   directory->file(std::to_string(i)));
            });
        }
        for (std::thread& starter : starters) {
            starter.join();
        }
    }
    static void TearDownTestSuite() {
        controllers.clear();
        directory.reset();
    }

    static std::string address(int i) { return "127.2.0." + std::to_string(i + 1); }

    IpmiOverLan() {
        auto created = std::make_unique<CShellCommandSet_IPMI>();
        set = created.get();
        context.addCommandSet(created.release());  // the context owns it
    }

    // One worker a controller, as the engine does it.
    std::vector<CResult> onAll(const std::string& line) {
        std::vector<CResult> results(kControllers);
        std::vector<std::thread> workers;
        for (int i = 0; i < kControllers; ++i) {
            workers.emplace_back([this, i, line, &results] {
                CNode node("node", "02:00:00:00:00:01", address(i), 4422);
                set->execute(line, &node, results[static_cast<std::size_t>(i)], 30000);
            });
        }
        for (std::thread& worker : workers) {
            worker.join();
        }
        return results;
    }

    void expectOnAll(const std::string& command, const std::string& summary) {
        for (const CResult& result : onAll(command + " -U admin -P secret")) {
            EXPECT_EQ(summary, result.getRunSummary()) << command;
            EXPECT_EQ(EXEC_SUCCESS, result.getRunStatus());
            EXPECT_EQ(0, result.getExitCode());
        }
    }

    static void eventually(const std::function<bool()>& condition, const std::string& what) {
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!condition()) {
            ASSERT_LT(std::chrono::steady_clock::now(), limit) << what;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    }

    void expectPower(const std::string& state) {
        for (const auto& controller : controllers) {
            eventually([&] { return controller->power() == state; }, "power " + state);
        }
    }

    // The event shows on every controller, after as many as there were before.
    void expectEvent(const std::string& command, const std::string& event) {
        std::vector<std::string> before;
        for (const auto& controller : controllers) {
            before.push_back(controller->events());
        }
        expectOnAll(command, "\n");
        for (std::size_t i = 0; i < controllers.size(); ++i) {
            eventually(
                [&] {
                    return controllers[i]->events().substr(before[i].size()).find(event + "\n") !=
                           std::string::npos;
                },
                event);
        }
    }

    static std::unique_ptr<TempDir> directory;
    static std::vector<std::unique_ptr<BmcSimulator>> controllers;
    CShellExecutionContext context;
    CShellCommandSet_IPMI* set = nullptr;
};

std::unique_ptr<TempDir> IpmiOverLan::directory;
std::vector<std::unique_ptr<BmcSimulator>> IpmiOverLan::controllers;

TEST_F(IpmiOverLan, TellsTheDeviceTypes) {
    const std::vector<CResult> results = onAll("check device type -U admin -P secret");
    for (std::size_t i = 0; i < results.size(); ++i) {
        EXPECT_EQ(results[i].getRunSummary(), i % 2 == 0 ? "Module type 3" : "Chassis module A");
    }
}

TEST_F(IpmiOverLan, SwitchesThePower) {
    expectOnAll("power on", "\n");
    expectPower("on");
    expectOnAll("acpi status", " 00 00\n");
    expectOnAll("power off", "\n");
    expectPower("off");
    expectOnAll("acpi status", " 05 00\n");
}

TEST_F(IpmiOverLan, CyclesThePower) {
    expectOnAll("power on", "\n");
    expectPower("on");
    expectOnAll("power cycle", "\n");
    for (const auto& controller : controllers) {
        eventually(
            [&] {
                const std::string events = controller->events();
                const std::string::size_type off = events.rfind("power off\n");
                return off != std::string::npos &&
                       events.find("power on\n", off) != std::string::npos;
            },
            "off and on again");
    }
    expectPower("on");
}

TEST_F(IpmiOverLan, ResetsAndShutsDown) {
    expectOnAll("power on", "\n");
    expectPower("on");
    expectEvent("power reset", "power reset");
    expectEvent("power soft", "power soft");
    expectPower("off");
}

TEST_F(IpmiOverLan, LightsTheLedAndResetsTheController) {
    expectEvent("set uid led on", "uid led on");
    expectEvent("set uid led off", "uid led off");
    expectEvent("cold reset", "cold reset");
}

TEST_F(IpmiOverLan, SendsRawCommands) {
    const std::string answer = " 00 03 09 08 02 9f 91 12 00 02 0f 00 00 00 00\n";
    expectOnAll("raw command -rc \"0x06 0x01\"", answer);
    expectOnAll("raw command -rc 0x06 0x01", answer);
}

TEST_F(IpmiOverLan, ShowsIpmitoolsWordsForAWrongPassword) {
    for (const CResult& result : onAll("power off -U admin -P wrong")) {
        EXPECT_EQ(EXEC_SUCCESS, result.getRunStatus());
        EXPECT_EQ(1, result.getExitCode());
        EXPECT_NE(result.getRunSummary().find("Unable to establish IPMI v2 / RMCP+ session"),
                  std::string::npos)
            << result.getRunSummary();
    }
    for (const CResult& result : onAll("check device type -U admin -P wrong")) {
        EXPECT_EQ("No IPMI device", result.getRunSummary());
    }
}

}  // namespace
