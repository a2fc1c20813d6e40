// Attacks a real agent and a real shell and prints what became of them. Not a test of single
// functions: everything here goes over real TLS to real processes on loopback addresses.

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <string>
#include <sys/resource.h>
#include <utility>
#include <vector>

#include "Figure.h"

namespace {

using Attack = std::function<std::vector<Figure>(const Scale&)>;

const std::vector<std::pair<std::string, Attack>>& attacks() {
    static const std::vector<std::pair<std::string, Attack>> all{
        {"slow-peers", attackWithSlowPeers},
        {"begun-handshakes", attackWithBegunHandshakes},
        {"held-sessions", attackWithHeldSessions},
        {"key-updates", attackWithKeyUpdates},
        {"descriptors", attackDescriptors},
        {"frames", attackWithMalformedFrames},
        {"certificates", attackWithCertificates},
        {"escapes", attackWithEscapingJobs},
        {"flashes", interruptFlashes},
        {"read-backs", attackReadBacks},
        {"leftovers", attackWithLeftovers},
        {"trust", attackTrustOfNode},
        {"audit", changeAudit},
        {"configurations", compareConfigurations},
        {"payloads", attackShellWithAnswers},
        {"tricks", attackShellWithTricks},
        {"soak", soak}};
    return all;
}

int usage(int status) {
    std::FILE* const stream = status == 0 ? stdout : stderr;
    std::fputs(
        "Usage: hostile [--short | --percent N] [ATTACK...]\n\nAttacks, all of them by default:\n",
        stream);
    for (const auto& attack : attacks()) {
        std::fprintf(stream, "  %s\n", attack.first.c_str());
    }
    std::fputs("Exit status: 0 every figure reached, 1 one was not, 2 wrong usage.\n", stream);
    return status;
}

// lasted: of the attack; empty for its further figures.
void print(const Figure& figure, const std::string& lasted) {
    const std::string recovery =
        figure.recoverMs < 0 ? "-" : std::to_string(figure.recoverMs) + " ms";
    std::printf("| %s | %ld | %ld | %s | %ld KiB | %s | %s | %s |\n", figure.attack.c_str(),
                figure.tries, figure.survived, recovery.c_str(), figure.growthKiB,
                figure.isReached ? "reached" : "**missed**", lasted.c_str(), figure.remark.c_str());
    std::fflush(stdout);
}

std::string secondsSince(std::chrono::steady_clock::time_point began) {
    const auto elapsed = std::chrono::steady_clock::now() - began;
    return std::to_string(std::chrono::ceil<std::chrono::seconds>(elapsed).count()) + " s";
}

// True when all its figures are reached.
bool run(const std::string& name, const Attack& attack, const Scale& scale) {
    const auto began = std::chrono::steady_clock::now();
    bool reached = true;
    try {
        const std::vector<Figure> figures = attack(scale);
        std::string lasted = secondsSince(began);
        for (const Figure& figure : figures) {
            print(figure, lasted);
            lasted.clear();
            reached = reached && figure.isReached;
        }
    } catch (const std::exception& failure) {
        Figure broken;
        broken.attack = name;
        broken.remark = std::string("could not be run: ") + failure.what();
        print(broken, secondsSince(began));
        return false;
    }
    return reached;
}

}  // namespace

int main(int argc, char** argv) {
    ::signal(SIGPIPE, SIG_IGN);
    // Hundreds of connections are held open at once.
    rlimit files{};
    if (::getrlimit(RLIMIT_NOFILE, &files) == 0) {
        files.rlim_cur = files.rlim_max;
        static_cast<void>(::setrlimit(RLIMIT_NOFILE, &files));
    }
    Scale scale;
    std::vector<std::pair<std::string, Attack>> chosen;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        bool known = word == "--short";
        scale.isShort = scale.isShort || known;
        if (word == "--percent" && i + 1 < argc) {
            scale.percent = std::strtol(argv[++i], nullptr, 10);
            known = scale.percent > 0 && scale.percent <= 100;
        }
        for (const auto& attack : attacks()) {
            if (attack.first == word) {
                chosen.push_back(attack);
                known = true;
            }
        }
        if (!known) {
            return usage(word == "--help" || word == "-h" ? 0 : 2);
        }
    }
    bool reached = true;
    std::puts(
        "| attack | tries | survived | recovery | memory | figure | lasted | remarks |\n"
        "|---|---|---|---|---|---|---|---|");
    std::fflush(stdout);
    for (const auto& [name, attack] : chosen.empty() ? attacks() : chosen) {
        reached = run(name, attack, scale) && reached;
    }
    return reached ? 0 : 1;
}
