#pragma once

#include <algorithm>
#include <string>
#include <vector>

// One line of the table: an attack and what became of what was attacked.
struct Figure {
    std::string attack;
    long tries = 0;
    long survived = 0;    // tries that ended as they should
    long recoverMs = -1;  // until everything was as before; -1 where nothing had to recover
    long growthKiB = 0;   // memory of what was attacked, after minus before or peak minus before
    std::string remark;   // further measurements, and what went wrong
    bool isReached = false;
};

// How much of an attack is run: in full, a part of it, or so little that all of them together take
// a minute.
struct Scale {
    bool isShort = false;
    long percent = 100;
    long pick(long full, long small) const {
        return isShort ? small : std::max(small, full * percent / 100);
    }
    // A limit that only says how fast something has to be. The short form runs beside compilers on
    // machines that have other things to do.
    long lenient(long limit) const { return isShort ? kLeniency * limit : limit; }

    static constexpr long kLeniency = 5;
};

// The attacks. Each starts what it attacks, ends it, and may throw when it cannot be set up.
std::vector<Figure> attackWithSlowPeers(const Scale& scale);
std::vector<Figure> attackWithBegunHandshakes(const Scale& scale);
std::vector<Figure> attackWithHeldSessions(const Scale& scale);
std::vector<Figure> attackWithKeyUpdates(const Scale& scale);
std::vector<Figure> attackDescriptors(const Scale& scale);
std::vector<Figure> attackWithMalformedFrames(const Scale& scale);
std::vector<Figure> attackWithCertificates(const Scale& scale);
std::vector<Figure> attackWithEscapingJobs(const Scale& scale);
std::vector<Figure> interruptFlashes(const Scale& scale);
std::vector<Figure> attackReadBacks(const Scale& scale);
std::vector<Figure> attackWithLeftovers(const Scale& scale);
std::vector<Figure> attackTrustOfNode(const Scale& scale);
std::vector<Figure> changeAudit(const Scale& scale);
std::vector<Figure> compareConfigurations(const Scale& scale);
std::vector<Figure> attackShellWithAnswers(const Scale& scale);
std::vector<Figure> attackShellWithTricks(const Scale& scale);
std::vector<Figure> soak(const Scale& scale);
