// What stays behind and should not count any more: the background of a firmware job whose
// supervisor was killed, and a session whose master's certificate has ended.

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "CException.h"
#include "Figure.h"
#include "LocalAgent.h"
#include "ProcessTree.h"
#include "WaitFor.h"

namespace {

using Clock = std::chrono::steady_clock;

long since(Clock::time_point began) {
    return static_cast<long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - began).count());
}

void killBelow(const LocalAgent& agent, const std::string& name) {
    for (const processtree::ProcessInfo& process :
         processtree::descendantsOf(agent.listenerPid())) {
        if (process.name == name) {
            ::kill(process.pid, SIGKILL);
        }
    }
}

bool flashes(const LocalAgent& agent) {
    try {
        const auto client = agent.connect();
        client->setUninterruptible(true);
        CResult result;
        client->execute("true", 5000, &result);
        return result.getRunStatus() == EXEC_SUCCESS;
    } catch (const CException&) {
        return false;
    }
}

// True when the next firmware job is let in although the background of the last one holds its lock.
bool freesTheLock(const LocalAgent& agent, long number, long& recoverMs) {
    const std::string started = agent.nodePath() + "started-" + std::to_string(number);
    protocol::Exec exec;
    exec.commandLine = "sleep 600 & touch " + started + "; sleep 600";
    auto channel = agent.openChannel();
    channel->sendFrame(protocol::encode(exec, protocol::kFlagUninterruptible), LocalAgent::soon());
    if (!waitFor([&] { return std::filesystem::exists(started); })) {
        return false;
    }
    channel.reset();
    killBelow(agent, "kelnode-job");
    const bool wasKept = !flashes(agent);
    killBelow(agent, "sh");
    const Clock::time_point began = Clock::now();
    const bool isFree = waitFor([&] { return flashes(agent); });
    recoverMs = std::max(recoverMs, since(began));
    killBelow(agent, "sleep");
    return wasKept && isFree;
}

Figure holdTheFirmwareLock(const Scale& scale) {
    LocalAgent agent;
    agent.connect();
    Figure figure;
    figure.attack = "background of a firmware job without supervisor holds its lock";
    figure.tries = scale.pick(20, 2);
    for (long i = 0; i < figure.tries; ++i) {
        figure.survived += freesTheLock(agent, i, figure.recoverMs) ? 1 : 0;
    }
    figure.isReached = figure.survived == figure.tries;
    return figure;
}

bool isAnswered(TlsChannel& channel) {
    channel.sendFrame(protocol::encodeMacRequest(), LocalAgent::soon());
    return channel.receiveFrame(LocalAgent::soon()).header.type == protocol::FrameType::kAnswer;
}

Figure outliveACertificate(const Scale& scale) {
    constexpr long kSeconds = 3;
    LocalAgent agent;
    Figure figure;
    figure.attack = "requests on a connection whose certificate has ended";
    TestPki::Request request;
    request.commonName = "short";
    request.notAfterSeconds = kSeconds;
    TlsFiles files;
    files.certificateFile = agent.pki().issue("short", request).certificateFile;
    const Clock::time_point began = Clock::now();
    const auto channel = TlsChannel::connect(agent.ip(), agent.port(), TlsContext::client(files),
                                             LocalAgent::soon());
    channel->receiveFrame(LocalAgent::soon());
    channel->sendFrame(protocol::encode(protocol::ShellHello()), LocalAgent::soon());
    long answered = 0;
    try {
        while (since(began) < 1000 * (kSeconds + 5) && isAnswered(*channel)) {
            ++answered;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    } catch (const CException&) {
        // Closed is as good as refused.
    }
    const long lastedMs = since(began);
    figure.tries = 1;
    // The end of a certificate is a whole second.
    figure.isReached = answered > 0 && lastedMs <= 1000 * (kSeconds + 2) + scale.lenient(500);
    figure.survived = figure.isReached ? 1 : 0;
    figure.remark = "refused " + std::to_string(lastedMs) + " ms after a certificate of " +
                    std::to_string(kSeconds) + " s was made";
    return figure;
}

}  // namespace

std::vector<Figure> attackWithLeftovers(const Scale& scale) {
    return {holdTheFirmwareLock(scale), outliveACertificate(scale)};
}
