#pragma once

#include <chrono>
#include <optional>
#include <random>
#include <string>

#include "ListeningSocket.h"
#include "SessionTable.h"
#include "SparingLog.h"
#include "StartLimits.h"
#include "WaitingRoom.h"

// Where connections are from their acceptance until they get a session: accepted, kept waiting
// until a handshake begins, and let in one after the other, as the limits have it. Nothing here
// takes a process, and nothing reads a byte.
//
// Not locked: the listener has one thread.
class Reception {
public:
    using Clock = std::chrono::steady_clock;

    // How long a connection may take from its acceptance to the end of its handshake.
    static constexpr std::chrono::milliseconds kHandshakeTime{5000};

    // Both stay the caller's.
    //   sessions  those that run: they count in every bound
    Reception(SessionTable& sessions, SparingLog& log);
    Reception(const Reception&) = delete;
    Reception& operator=(const Reception&) = delete;

    // In force for connections that come from now on.
    void setBounds(const SessionTable::Bounds& newBounds) { bounds = newBounds; }
    // Takes connections from there from now on. Throws CException, and goes on as before.
    void open(const ListenAddress& address) { socket = ListeningSocket(address); }
    // No more connections; those that wait are closed.
    void close();
    std::string boundAddress() const { return socket.boundAddress(); }

    // For poll(): readable when accept() or look() has something to do; -1: not now.
    int listeningDescriptor(Clock::time_point now);
    int waitingDescriptor() const { return room.descriptor(); }
    // When there is something to do without them.
    Clock::time_point nextAt() const;

    // Takes what has come in, a burst at most.
    void accept(Clock::time_point now);
    // Finds out whose handshake has begun, and who has gone.
    void look();
    // Closes those whose time is over.
    void closeExpired(Clock::time_point now);
    // The next one that gets a session; none when nobody wants one or may have one now. Masters'
    // addresses go first, those whose handshakes fail last; in between each source in turn, and of
    // one source any.
    std::optional<WaitingRoom::Guest> next(Clock::time_point now);

    // What became of a session that has begun here.
    void noteMaster(const std::string& source) { limits.noteMaster(source, Clock::now()); }
    void noteFailure(const std::string& source) { limits.noteFailure(source, Clock::now()); }

    // No connections for a moment: there is no room for what they need. errno says why.
    void pause(const std::string& what, Clock::time_point now);

private:
    bool acceptOne(Clock::time_point now);
    // For a newer one. False when all of them have only come.
    bool dropOneThatWaits(Clock::time_point now);
    void makeRoom(const SessionTable::Admission& admission, const std::string& source,
                  Clock::time_point now);
    std::size_t chance(std::size_t count);

    SessionTable& sessions;
    SparingLog& log;
    SessionTable::Bounds bounds;
    ListeningSocket socket;
    WaitingRoom room;
    StartLimits limits;
    std::mt19937 random;
    Clock::time_point acceptAgainAt{};
    // When somebody who may not start now may; the epoch: nobody waits for that.
    Clock::time_point startAgainAt{};
    // The source that started last of its standing: the others have their turn first.
    std::string lastSource;
};
