// Firmware that is being written while everything around it is cut, stopped or killed. The stand-in
// writes its image in pieces, slowly; a flash counts as survived when the whole image is there, was
// written once, and verifies.

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include "CException.h"
#include "Figure.h"
#include "LocalAgent.h"
#include "Processes.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int kPieces = 8;

// Writes one numbered line per piece and says at the end that it is done.
std::string flashLine(const std::string& chip) {
    return "echo erasing; for piece in 1 2 3 4 5 6 7 8; do echo piece $piece >> " + chip +
           "; sleep 0.08; done; echo verified >> " + chip;
}

std::string wholeImage() {
    std::string image;
    for (int piece = 1; piece <= kPieces; ++piece) {
        image += "piece " + std::to_string(piece) + "\n";
    }
    return image + "verified\n";
}

using Interruption = std::function<void(LocalAgent&, std::unique_ptr<TlsChannel>&)>;

void killFirst(const LocalAgent& agent, const std::string& name) {
    for (const pid_t pid : agent.processes(name)) {
        ::kill(pid, SIGKILL);
    }
}

struct Kind {
    const char* name;
    std::uint32_t timeOutMs;
    Interruption interrupt;
};

const std::vector<Kind>& kinds() {
    static const std::vector<Kind> all{
        {"connection cut", 0,
         [](LocalAgent&, std::unique_ptr<TlsChannel>& channel) { channel.reset(); }},
        {"time-out passed", 150, [](LocalAgent&, std::unique_ptr<TlsChannel>&) {}},
        {"session killed", 0,
         [](LocalAgent& agent, std::unique_ptr<TlsChannel>&) {
             killFirst(agent, "kelnode-session");
         }},
        {"agent stopped and started", 0,
         [](LocalAgent& agent, std::unique_ptr<TlsChannel>&) {
             agent.signal(SIGTERM);
             agent.waitForExit();
             agent.start();
         }},
        {"agent killed and started", 0,
         [](LocalAgent& agent, std::unique_ptr<TlsChannel>&) {
             agent.signal(SIGKILL);
             agent.waitForExit();
             agent.start();
         }},
        {"session, supervisor and agent killed", 0,
         [](LocalAgent& agent, std::unique_ptr<TlsChannel>&) {
             killFirst(agent, "kelnode-job");
             killFirst(agent, "kelnode-session");
             agent.signal(SIGKILL);
             agent.waitForExit();
             agent.start();
         }}};
    return all;
}

bool hasBegun(const std::string& chip) {
    return waitFor([&] { return !LocalAgent::read(chip).empty(); });
}

// A second flash must not begin while the first is under way; true when none did.
bool isAlone(const LocalAgent& agent, const std::string& chip) {
    const auto client = agent.connect();
    client->setUninterruptible(true);
    const bool wasDone = LocalAgent::read(chip) == wholeImage();
    CResult result;
    try {
        client->execute("true", 10000, &result);
    } catch (const CException&) {
        return true;
    }
    return wasDone || LocalAgent::read(chip) == wholeImage();
}

bool survives(LocalAgent& agent, const Kind& kind, long number) {
    const std::string chip = agent.nodePath() + "chip-" + std::to_string(number);
    std::unique_ptr<TlsChannel> channel = agent.openChannel();
    protocol::Exec exec;
    exec.timeOutMs = kind.timeOutMs;
    exec.commandLine = flashLine(chip);
    channel->sendFrame(protocol::encode(exec, protocol::kFlagUninterruptible), LocalAgent::soon());
    if (!hasBegun(chip)) {
        std::fprintf(stderr, "flashes: \"%s\": did not begin\n", kind.name);
        return false;
    }
    // Another moment of the flash each time.
    std::this_thread::sleep_for(milliseconds(number * 37 % 500));
    kind.interrupt(agent, channel);
    const bool alone = isAlone(agent, chip);
    const bool whole = waitFor([&] { return LocalAgent::read(chip) == wholeImage(); });
    if (!alone || !whole) {
        std::fprintf(stderr, "flashes: \"%s\": %s, chip holds \"%s\"\n", kind.name,
                     alone ? "not complete" : "a second one ran beside it",
                     LocalAgent::read(chip).c_str());
    }
    // The next one needs the lock.
    const bool tidy = waitFor([&] { return agent.records().empty(); }, std::chrono::seconds(20));
    if (!tidy) {
        std::fprintf(stderr, "flashes: \"%s\": its record stays\n", kind.name);
    }
    std::filesystem::remove(chip);
    return alone && whole && tidy;
}

Figure interrupt(const Kind& kind, long tries) {
    Figure figure;
    figure.attack = std::string("flash: ") + kind.name;
    figure.tries = tries;
    LocalAgent agent;
    for (long i = 0; i < tries; ++i) {
        const Clock::time_point start = Clock::now();
        figure.survived += survives(agent, kind, i) ? 1 : 0;
        figure.recoverMs =
            std::max(figure.recoverMs,
                     static_cast<long>(
                         std::chrono::duration_cast<milliseconds>(Clock::now() - start).count()));
    }
    figure.remark = "recovery is the longest flash with its aftermath";
    figure.isReached = figure.survived == tries;
    return figure;
}

}  // namespace

std::vector<Figure> interruptFlashes(const Scale& scale) {
    std::vector<Figure> figures(kinds().size());
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < figures.size(); ++i) {
        threads.emplace_back([&, i] {
            try {
                figures[i] = interrupt(kinds()[i], scale.pick(50, 3));
            } catch (const std::exception& failure) {
                figures[i].attack = std::string("flash: ") + kinds()[i].name;
                figures[i].remark = failure.what();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    return figures;
}
