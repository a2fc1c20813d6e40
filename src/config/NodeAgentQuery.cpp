#include "NodeAgentQuery.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <numeric>
#include <system_error>
#include <thread>

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

// One round of questions to all nodes.
class Survey {
public:
    Survey(const std::vector<const CNode*>& all, const NodeAgentQuery& how, std::size_t most)
        : nodes(all), query(how), mostAtOnce(most), answers(all.size()) {}

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
        std::mutex mutex;
        std::vector<std::size_t> pending;
        std::atomic<std::size_t> next{0};
        const auto work = [&] {
            for (std::size_t place = next++; place < due.size(); place = next++) {
                if (!askOne(due[place])) {
                    const std::lock_guard<std::mutex> lock(mutex);
                    pending.push_back(due[place]);
                }
            }
        };
        runOnThreads(std::min(due.size(), mostAtOnce), work);
        return pending;
    }

    // False when the node must be asked again.
    bool askOne(std::size_t index) {
        try {
            answers[index] = query(*nodes[index]);
        } catch (...) {
            // The node could not be asked, for whatever reason. Nothing may be thrown out of a
            // thread.
            answers[index] = NodeAgentAnswer();
        }
        return !answers[index].pending;
    }

    // The calling thread takes part, so that the work is done even when no thread can be started.
    static void runOnThreads(std::size_t count, const std::function<void()>& work) {
        std::vector<std::thread> threads;
        threads.reserve(count);
        try {
            while (threads.size() + 1 < count) {
                threads.emplace_back(work);
            }
        } catch (const std::system_error&) {
            // No more threads: the running ones and this one do the work.
        }
        work();
        for (std::thread& thread : threads) {
            thread.join();
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
    std::vector<NodeAgentAnswer> answers;  // each written by the thread that asks
};

}  // namespace

std::vector<NodeAgentAnswer> askNodeAgents(const std::vector<const CNode*>& nodes,
                                           const NodeAgentQuery& query, std::size_t mostAtOnce) {
    // Made here at the latest: several threads must not make the instance at once.
    static_cast<void>(CSSLConfig::getInstance());
    return Survey(nodes, query, mostAtOnce).run();
}
