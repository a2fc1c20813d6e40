#include "NodeAgentQuery.h"

#include <algorithm>
#include <atomic>
#include <system_error>
#include <thread>

#include "CException.h"
#include "CSSLConfig.h"
#include "CUtil.h"
#include "SSLClient.h"
#include "StopWatch.h"

NodeAgentAnswer askNodeAgent(const CNode& node) {
    SSLClient client(node.getIp(), static_cast<int>(node.getPort()),
                     CSSLConfig::getInstance()->getCertificateFile());
    StopWatch watch;
    watch.start();
    client.initAndConnect(kAgentQueryTimeOutMs);
    watch.stop();
    const long left = static_cast<long>(kAgentQueryTimeOutMs) - watch.getTime();
    NodeAgentAnswer answer;
    answer.mac =
        client.getKelNodeMacAddress(node.getIp(), static_cast<unsigned int>(std::max(left, 1L)));
    CUtil::trim(answer.mac);
    answer.connected = true;
    return answer;
}

std::vector<NodeAgentAnswer> askNodeAgents(const std::vector<const CNode*>& nodes,
                                           const NodeAgentQuery& query, std::size_t mostAtOnce) {
    // Made here if not yet: the instance must not come into being on several threads at once.
    static_cast<void>(CSSLConfig::getInstance());
    std::vector<NodeAgentAnswer> answers(nodes.size());
    std::atomic<std::size_t> next{0};
    const auto work = [&] {
        for (std::size_t index = next++; index < nodes.size(); index = next++) {
            try {
                answers[index] = query(*nodes[index]);
            } catch (...) {
                // Whatever went wrong, the node could not be asked; nothing may leave a thread.
                answers[index] = NodeAgentAnswer();
            }
        }
    };
    // The calling thread takes part, so that the work is done even when no thread can be started.
    const std::size_t helpers = std::min(nodes.size(), mostAtOnce);
    std::vector<std::thread> threads;
    threads.reserve(helpers);
    try {
        while (threads.size() + 1 < helpers) {
            threads.emplace_back(work);
        }
    } catch (const std::system_error&) {
        // Out of threads: those that run, and this one, do it all.
    }
    work();
    for (std::thread& thread : threads) {
        thread.join();
    }
    return answers;
}
