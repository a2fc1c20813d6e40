#include "NodeAgentQuery.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <numeric>
#include <system_error>
#include <thread>
#include <utility>

#include "CSSLConfig.h"
#include "CUtil.h"
#include "Dialer.h"
#include "SSLClient.h"
#include "StopWatch.h"
#include "TlsSocket.h"

NodeAgentAnswer askNodeAgent(const CNode& node) {
    SSLClient client(node.getIp(), static_cast<int>(node.getPort()),
                     CSSLConfig::getInstance()->getCertificateFile());
    client.setPatience(std::chrono::milliseconds(kAgentSilenceMs));
    StopWatch watch;
    watch.start();
    client.initAndConnect(kAgentQueryTimeOutMs);
    watch.stop();
    NodeAgentAnswer answer;
    answer.pending = client.isPending();
    if (answer.pending) {
        return answer;
    }
    const long left = static_cast<long>(kAgentQueryTimeOutMs) - watch.getTime();
    answer.mac =
        client.getKelNodeMacAddress(node.getIp(), static_cast<unsigned int>(std::max(left, 1L)));
    CUtil::trim(answer.mac);
    answer.connected = true;
    return answer;
}

namespace {

// Never destroyed: threads that were given up may still end.
std::atomic<unsigned int> givenUp{0};

// Asks some nodes side by side. Its threads share this block with the one that waits for them,
// which gives them up where they get no further.
class Round {
public:
    Round(std::vector<CNode> toAsk, NodeAgentQuery how)
        : nodes(std::move(toAsk)), query(std::move(how)), answers(nodes.size()) {}

    // Takes one node after the other until none is left.
    void work() {
        for (;;) {
            std::size_t place = 0;
            {
                const std::lock_guard<std::mutex> lock(mutex);
                if (next == nodes.size()) {
                    return;
                }
                place = next++;
            }
            NodeAgentAnswer answer;
            try {
                answer = query(nodes[place]);
            } catch (...) {
                // Whatever went wrong, the node could not be asked; nothing may leave a thread.
                answer = NodeAgentAnswer();
            }
            const std::lock_guard<std::mutex> lock(mutex);
            answers[place] = std::move(answer);
            ++done;
            progress.notify_one();
        }
    }

    // Waits until all have been asked, or until no answer has come for so long: those that are
    // missing then count as not connected. False when some are missing.
    bool await(std::chrono::milliseconds patience) {
        std::unique_lock<std::mutex> lock(mutex);
        for (std::size_t before = done; done < nodes.size(); before = done) {
            if (!progress.wait_for(lock, patience, [&] { return done != before; })) {
                next = nodes.size();
                return false;
            }
        }
        return true;
    }

    std::vector<NodeAgentAnswer> takeAnswers() {
        const std::lock_guard<std::mutex> lock(mutex);
        return answers;
    }

private:
    const std::vector<CNode> nodes;  // copies: the caller's may be gone before the last thread
    const NodeAgentQuery query;
    std::mutex mutex;
    std::condition_variable progress;
    // All guarded by mutex.
    std::size_t next = 0;
    std::size_t done = 0;
    std::vector<NodeAgentAnswer> answers;
};

// One asking of all nodes.
class Survey {
public:
    Survey(const std::vector<const CNode*>& all, const NodeAgentQuery& how, std::size_t most,
           std::chrono::milliseconds longest)
        : nodes(all), query(how), mostAtOnce(most), patience(longest), answers(all.size()) {}

    std::vector<NodeAgentAnswer> run() {
        std::vector<std::size_t> due(nodes.size());
        std::iota(due.begin(), due.end(), std::size_t{0});
        std::vector<std::size_t> silent;
        for (;;) {
            const std::vector<std::size_t> still = ask(due);
            silent.insert(silent.end(), still.begin(), still.end());
            if (silent.empty()) {
                return std::move(answers);
            }
            due = takeAnswered(silent);
        }
    }

private:
    // Asks these nodes at the same time; returns those that the network has not answered yet.
    std::vector<std::size_t> ask(const std::vector<std::size_t>& due) {
        std::vector<CNode> copies;
        copies.reserve(due.size());
        for (const std::size_t index : due) {
            copies.push_back(*nodes[index]);
        }
        const auto round = std::make_shared<Round>(std::move(copies), query);
        runOnThreads(round, std::min(due.size(), mostAtOnce));
        const std::vector<NodeAgentAnswer> found = round->takeAnswers();
        std::vector<std::size_t> pending;
        for (std::size_t i = 0; i < due.size(); ++i) {
            answers[due[i]] = found[i];
            if (found[i].pending) {
                pending.push_back(due[i]);
            }
        }
        return pending;
    }

    // The calling thread does it alone where no thread is wanted or none can be started.
    void runOnThreads(const std::shared_ptr<Round>& round, std::size_t count) const {
        std::vector<std::thread> threads;
        threads.reserve(count);
        try {
            while (mostAtOnce > 1 && threads.size() < count) {
                threads.emplace_back([round] { round->work(); });
            }
        } catch (const std::system_error&) {
            // Out of threads: those that run do it all.
        }
        if (threads.empty()) {
            round->work();
            return;
        }
        const bool isComplete = round->await(patience);
        for (std::thread& thread : threads) {
            if (isComplete) {
                thread.join();
            } else {
                // It may be inside a library whose exit handlers would free what it uses.
                givenUp.fetch_add(1);
                thread.detach();
            }
        }
    }

    // Waits until at least one node can be asked again, and removes those from the list.
    std::vector<std::size_t> takeAnswered(std::vector<std::size_t>& silent) const {
        std::vector<std::string> peers;
        peers.reserve(silent.size());
        for (const std::size_t index : silent) {
            peers.push_back(
                tlssocket::join(nodes[index]->getIp(), static_cast<int>(nodes[index]->getPort())));
        }
        std::vector<std::size_t> places = Dialer::process().awaitAnswers(peers);
        std::vector<std::size_t> answered;
        // From the end, so that the indexes before stay valid.
        for (auto place = places.rbegin(); place != places.rend(); ++place) {
            answered.push_back(silent[*place]);
            silent.erase(silent.begin() + static_cast<std::ptrdiff_t>(*place));
        }
        return answered;
    }

    const std::vector<const CNode*>& nodes;
    const NodeAgentQuery& query;
    const std::size_t mostAtOnce;
    const std::chrono::milliseconds patience;
    std::vector<NodeAgentAnswer> answers;
};

}  // namespace

std::vector<NodeAgentAnswer> askNodeAgents(const std::vector<const CNode*>& nodes,
                                           const NodeAgentQuery& query, std::size_t mostAtOnce,
                                           std::chrono::milliseconds patience) {
    // Made here if not yet: the instance must not come into being on several threads at once.
    static_cast<void>(CSSLConfig::getInstance());
    return Survey(nodes, query, mostAtOnce, patience).run();
}

unsigned int abandonedAgentQueries() {
    return givenUp.load();
}
