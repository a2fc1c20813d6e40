// Several masters run the same tool on one node at once, each with an argument of its own, and read
// back what it left under a fixed name, as the built-in sets do.

#include <atomic>
#include <chrono>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "CException.h"
#include "Figure.h"
#include "LocalAgent.h"

namespace {

constexpr int kMasters = 8;
constexpr unsigned int kTimeOutMs = 60000;

// Whether what was read back is what this very run wrote.
bool readsItsOwn(const LocalAgent& agent, const std::string& token) {
    const auto client = agent.connect();
    CResult result;
    client->executeEncryptedBinary("", token, agent.nodePath(), {"asker.enc"}, {}, kTimeOutMs,
                                   &result);
    if (result.getExitCode() != 0) {
        return false;
    }
    client->execute("cat " + agent.nodePath() + "answer", kTimeOutMs, &result);
    return result.getRunSummary() == token + "\n";
}

}  // namespace

std::vector<Figure> attackReadBacks(const Scale& scale) {
    const long tries = scale.pick(400, 40);
    LocalAgent agent;
    agent.packScript("asker",
                     "#!/bin/sh\n: > ./answer; sleep 0.01; echo \"$1\" > ./answer; exit 0\n");
    Figure figure;
    figure.attack = std::to_string(kMasters) + " masters run a tool at once and read it back";
    figure.tries = tries;
    std::atomic<long> next{0};
    std::atomic<long> own{0};
    std::vector<std::thread> threads;
    const auto began = std::chrono::steady_clock::now();
    for (int i = 0; i < kMasters; ++i) {
        threads.emplace_back([&] {
            for (long at = next++; at < tries; at = next++) {
                try {
                    own += readsItsOwn(agent, "run-" + std::to_string(at)) ? 1 : 0;
                } catch (const CException& failure) {
                    std::fprintf(stderr, "read-backs: %s\n", failure.getErrMsg().c_str());
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const auto lasted = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - began);
    figure.survived = own;
    figure.isReached = own == tries;
    figure.remark = std::to_string(lasted.count() / tries) + " ms a run with its read-back";
    return {figure};
}
