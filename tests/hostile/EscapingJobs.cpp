// Jobs that try to outlive their time-out, in as many ways as the system offers.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include "CException.h"
#include "Figure.h"
#include "LocalAgent.h"
#include "Processes.h"
#include "TestPaths.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr unsigned int kTimeOutMs = 400;
constexpr long kLimitMs = 6000;
// That many jobs are to be ended at the same time.
constexpr int kSideBySide = 16;

// The job stops the process that keeps its time, before it takes its own way.
constexpr char kStopped[] = "stopped-supervisor";

const char* const kWays[] = {"foreground",  "setsid",    "double-fork", "daemon",  "nohup",
                             "ignore-term", "stopped",   "storm",       "hopping", "vfork",
                             "threads",     "held-pipe", kStopped};

// Looks for the jobs' processes all the time. One for all: a look through /proc is not free.
class Watch {
public:
    explicit Watch(std::string commonToken) : token(std::move(commonToken)) {
        thread = std::thread([this] { look(); });
    }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;
    ~Watch() {
        stopped = true;
        thread.join();
    }

    // When a process of that job was last seen, once a whole look has not found any; the limit
    // where they are still there by then.
    Clock::time_point lastSeen(long job, Clock::time_point limit) {
        const Clock::time_point asked = Clock::now();
        std::unique_lock<std::mutex> lock(mutex);
        looked.wait(lock, [&] {
            return lookBegan > limit || (lookBegan > asked && seen[job] < lookBegan);
        });
        return std::min(seen[job], limit);
    }

private:
    void look() {
        while (!stopped) {
            const Clock::time_point began = Clock::now();
            const std::vector<processes::Sighting> found = processes::sightings(token);
            {
                const std::lock_guard<std::mutex> lock(mutex);
                lookBegan = began;
                for (const processes::Sighting& sighting : found) {
                    seen[jobOf(sighting.commandLine)] = sighting.at;
                }
            }
            looked.notify_all();
            std::this_thread::sleep_for(milliseconds(50));
        }
    }

    long jobOf(const std::string& line) const {
        return std::atol(line.c_str() + line.find(token) + token.size());
    }

    const std::string token;
    std::atomic<bool> stopped{false};
    std::mutex mutex;
    std::condition_variable looked;
    std::map<long, Clock::time_point> seen;  // guarded by mutex
    Clock::time_point lookBegan;             // guarded by mutex
    std::thread thread;
};

struct Outcome {
    bool survived = true;
    long lastedMs = 0;  // beyond the time-out
    bool timedOut = false;
};

Outcome escape(const LocalAgent& agent, Watch& watch, const std::string& way,
               const std::string& token, long job, milliseconds limit) {
    const auto client = agent.connect();
    const Clock::time_point end = Clock::now() + milliseconds(kTimeOutMs);
    CResult result;
    const std::string escapee = std::string(KELSH_BINARY_DIR) + "/bin/escapee ";
    const std::string arguments = " " + token + std::to_string(job);
    const std::string line = way == kStopped
                                 ? "kill -STOP $PPID; env -i " + escapee + "setsid" + arguments
                                 : escapee + way + arguments;
    client->execute(line, kTimeOutMs, &result);
    Outcome outcome;
    outcome.timedOut = result.getRunStatus() == EXEC_TIMED_OUT;
    const Clock::time_point seen = watch.lastSeen(job, end + limit);
    outcome.survived = seen >= end + limit;
    outcome.lastedMs =
        static_cast<long>(std::chrono::duration_cast<milliseconds>(seen - end).count());
    return outcome;
}

}  // namespace

std::vector<Figure> attackWithEscapingJobs(const Scale& scale) {
    constexpr std::size_t kWayCount = sizeof kWays / sizeof *kWays;
    const long tries = scale.pick(546, 26);
    const milliseconds limit(scale.lenient(kLimitMs));
    LocalAgent agent;
    agent.connect();
    const pid_t listener = agent.listenerPid();
    const long memoryBefore = processes::statusKiB(listener, "VmRSS");
    const std::string run = "hostile-" + std::to_string(::getpid()) + "-";
    Figure figure;
    figure.attack = "time-outs over " + std::to_string(kWayCount) + " ways of escaping";
    figure.tries = tries;
    Watch watch(run);
    std::mutex mutex;
    std::atomic<long> next{0};
    long survivors = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < kSideBySide; ++i) {
        threads.emplace_back([&] {
            for (long at = next++; at < tries; at = next++) {
                const char* const way = kWays[static_cast<std::size_t>(at) % kWayCount];
                Outcome outcome;
                try {
                    outcome = escape(agent, watch, way, run, at, limit);
                } catch (const CException& failure) {
                    std::fprintf(stderr, "escapes: %s: %s\n", way, failure.getErrMsg().c_str());
                }
                const std::lock_guard<std::mutex> lock(mutex);
                survivors += outcome.survived ? 1 : 0;
                figure.survived += outcome.timedOut && !outcome.survived ? 1 : 0;
                figure.recoverMs = std::max(figure.recoverMs, outcome.lastedMs);
                if (outcome.survived || !outcome.timedOut) {
                    std::fprintf(stderr, "escapes: %s: %s, %s\n", way,
                                 outcome.survived ? "not ended" : "ended",
                                 outcome.timedOut ? "timed out" : "not reported as timed out");
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const bool tidy = waitFor([&] {
        return agent.processes("kelnode-job").empty() && processes::zombies(listener) == 0;
    });
    // What lives too shortly to be read in /proc is still seen now and then below the listener.
    long late = 0;
    for (int look = 0; look < 40; ++look) {
        // The zygote stays for as long as the agent.
        late += static_cast<long>(processes::tree(listener).size()) - 1 -
                static_cast<long>(agent.processes("kelnode-zygote").size());
        std::this_thread::sleep_for(milliseconds(25));
    }
    figure.growthKiB = processes::statusKiB(listener, "VmRSS") - memoryBefore;
    figure.remark = std::to_string(survivors) + " jobs with a process left " +
                    std::to_string(limit.count() / 1000) + " s after the time-out, " +
                    std::to_string(processes::zombies(listener)) +
                    " zombies; recovery is the longest time to the last one's end";
    figure.isReached = figure.survived == tries && survivors == 0 && tidy && late == 0;
    return {figure};
}
