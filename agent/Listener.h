#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <sys/resource.h>
#include <vector>

#include "AgentConfig.h"
#include "AgentLog.h"
#include "Authorization.h"
#include "Job.h"
#include "NetworkZygotes.h"
#include "Reception.h"
#include "RefusalLog.h"
#include "RunDirectory.h"
#include "Sandbox.h"
#include "SessionLine.h"
#include "SessionTable.h"
#include "SparingLog.h"
#include "TlsContext.h"
#include "UniqueFd.h"

// The agent's parent process: accepts, counts and forks; everything that reads a byte from the
// network happens in a session's processes, and a connection gets them only when a handshake begins
// and it is its turn (Reception). One thread, one poll loop.
//
//   SIGHUP   reads configuration, certificates and revocation list anew; what does not work is
//            logged and the old stays in force. Sessions keep what they began with, unless the
//            certificate of their master would now be refused, or has fewer rights than before:
//            those are cut off at once. A job that must not be cut short goes on all the same.
//   SIGTERM, SIGINT  ends: no new connections, sessions and ordinary jobs are ended and tidied up
//            after; sessions with an uninterruptible job, and such jobs, go on without the
//            listener.
//
// It is the reaper of what sessions and jobs leave behind, and sweeps the run directory when one of
// them was killed.
class Listener {
public:
    // All stay the caller's. fileLimit is what jobs get.
    Listener(AgentConfig& config, AgentLog& log, const rlimit& fileLimit);
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    // Binds, loads the certificates, makes the run directory. Throws CException.
    void open();
    // "address:port" as bound.
    std::string boundAddress() const;
    // Serves until told to end.
    void run();

    static std::shared_ptr<TlsContext> loadContext(const AgentConfig& config);
    // Throws CException that names the first fault.
    static std::shared_ptr<const Authorization> loadAuthorization(const AgentConfig& config);

private:
    using Clock = std::chrono::steady_clock;

    void confineNetworkSides();
    void warnOfMissingPrefixes() const;
    void watchSignals();
    void poll();
    void serveNext();
    void serve(WaitingRoom::Guest guest);
    void keepReserve();
    [[noreturn]] void becomeSession(WaitingRoom::Guest guest, UniqueFd network, UniqueFd line);
    void readStatus(pid_t pid, SessionTable::Entry& entry);
    void take(SessionReport& report, pid_t pid, SessionTable::Entry& entry);
    // Cuts the session off if its master would not be let in as it is any more.
    void recheck(pid_t pid, SessionTable::Entry& entry);
    void warnOfExpiry();
    void readSignals();
    void reap();
    void noteEnd(pid_t pid, int status);
    void reload();
    void reopenSocket(const AgentConfig& fresh);
    void stop();
    bool mayLeave();
    void sweep();
    int pollTimeOut() const;

    AgentConfig& config;
    AgentLog& log;
    JobSettings jobSettings;
    RunDirectory runDirectory;
    sandbox::Settings confinement;  // of what faces the network
    NetworkZygotes zygotes;
    std::shared_ptr<TlsContext> context;
    std::shared_ptr<const Authorization> authorization;
    unsigned int generation = 0;  // counts what was loaded
    UniqueFd signals;
    SessionTable sessions;
    SparingLog sparingLog;
    RefusalLog refusals;
    Reception reception;
    // Given up for the socket of a session: connections that wait must not take the last
    // descriptors from those that speak.
    UniqueFd reserve[4];

    bool hangUp = false;
    bool terminate = false;
    Clock::time_point sweepAt{};
    Clock::time_point warnAt{};
};
