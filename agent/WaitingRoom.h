#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "UniqueFd.h"

// Accepted connections that have not yet said enough to be worth a process: a peer that says
// nothing, or a byte a second, costs a descriptor here and no more.
//
// Nothing is read from them. The only bytes looked at, and left where they are, are the five of the
// first TLS record's header, and of these only whether a handshake begins there and how long it is:
// the listener is the one process that must not fall to what a stranger sends, so it parses nothing
// that it could parse wrongly. Everything else is the session's.
//
// Not locked: the listener has one thread.
class WaitingRoom {
public:
    using Clock = std::chrono::steady_clock;
    // Rises with each guest, so that the lowest came first; never used twice.
    using Id = std::uint64_t;

    struct Guest {
        UniqueFd connection;
        std::string source;  // of the connection, as in StartLimits
        Clock::time_point acceptedAt;
        std::string refusal;   // what it is to be told in place of being served; mostly empty
        bool isReady = false;  // a handshake has begun, and it waits for its turn
    };
    using Guests = std::map<Id, Guest>;

    enum class Beginning {
        kUnfinished,  // too little yet to be told
        kReady,       // the session would find a greeting, or the most of one
        kEnded,       // the peer has stopped writing, so that no handshake can be made
        kForeign,     // this will be no TLS 1.3 handshake
    };

    // With so many bytes a session may as well begin: a greeting that another one of us sends has
    // more than these, and mostly comes in one piece.
    static constexpr std::size_t kEnoughBytes = 160;
    // With its random number, one cipher suite, one key share and one protocol name no greeting is
    // shorter than this. A record that announces less only wants a process.
    static constexpr std::size_t kLeastRecordBytes = 100;
    static constexpr std::size_t kMostRecordBytes = 16384;
    static constexpr std::size_t kRecordHeaderBytes = 5;

    // Throws CException when the kernel has no room for what watches the connections.
    WaitingRoom();
    WaitingRoom(const WaitingRoom&) = delete;
    WaitingRoom& operator=(const WaitingRoom&) = delete;

    // For poll(): readable when takeMoved() may find somebody. Each arrival of bytes shows once,
    // so that a connection with too few of them costs nothing until it has more.
    int descriptor() const { return watcher.get(); }

    // Takes the connection over. False, and the connection closed, when it cannot be watched.
    bool add(Guest guest);
    // Forgets it and hands it out; throws std::out_of_range for one that is not there.
    Guest take(Id id);
    void clear();
    // Notes that a handshake has begun there.
    void setReady(Id id);
    // Those of whom that was noted.
    const std::set<Id>& ready() const { return readyGuests; }

    // Those that moved since the last call and what they have come to, except kUnfinished. They
    // stay in the room until they are taken. At most kMostAtOnce; the descriptor stays readable
    // when there are more.
    std::vector<std::pair<Id, Beginning>> takeMoved();
    // Those accepted at that point in time or before, the oldest first.
    std::vector<Id> acceptedBefore(Clock::time_point limit) const;

    const Guests& all() const { return guests; }
    std::size_t size() const { return guests.size(); }

    // What stands at the beginning of the socket's queue.
    static Beginning lookAt(int connection);
    // The same for a record header, or less of one, with so many bytes there in all.
    static Beginning judge(const unsigned char* header, std::size_t headerBytes,
                           std::size_t bytesThere);

private:
    static constexpr int kMostAtOnce = 64;

    UniqueFd watcher;
    Guests guests;
    std::set<Id> readyGuests;
    Id nextId = 1;
};
