#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "UniqueFd.h"

// What a session and the listener say to each other on a socket of theirs. The session reports what
// it is at; the listener answers one report, that of the master who has authenticated, with whether
// the session may stay. Errors are of no matter to either, since the other one may be gone, with
// one exception: without the listener's leave nothing is served.

// One report of a session.
struct SessionReport {
    enum class Kind : char {
        kMaster = 'A',   // who has authenticated
        kFailure = 'F',  // nobody is served; text says why
        kRefusal = 'R',  // a request is not served; text is for RefusalLog
        kUninterruptibleBegins = 'U',
        kUninterruptibleEnds = 'u',
    };
    // Longer ones are not believed. Enough for the certificates of a handshake.
    static constexpr std::size_t kMaxBytes = std::size_t{48} * 1024;
    static constexpr std::size_t kFingerprintBytes = 32;

    Kind kind = Kind::kFailure;
    bool hasRole = false;      // of the master on this node
    std::string fingerprint;   // of its certificate, SHA-256
    std::string certificates;  // DER, its own first
    std::string text;
};

// The session's end.
class SessionLine {
public:
    explicit SessionLine(UniqueFd toListener);

    // Throws CException when the report would be too long.
    void tellMaster(bool hasRole, const std::string& fingerprint, const std::string& certificates);
    // Why nobody is served. Whether the listener has taken the text over: it writes few of them.
    bool tellFailure(const std::string& text);
    // A refused request, as RefusalLog::encode() has made it. Likewise.
    bool tellRefusal(const std::string& report);
    void tellUninterruptible(bool begins);
    // Waits for the answer to tellMaster(). Returns why the session may not stay, or an empty text.
    std::string awaitLeave();

private:
    bool tell(SessionReport::Kind kind, const std::string& body);

    UniqueFd socket;
};

// The listener's end, which reads without waiting. The descriptor stays the caller's.
class SessionReports {
public:
    // Adds bytes as they came.
    void add(const char* bytes, std::size_t count) { told.append(bytes, count); }
    // The next whole report.
    std::optional<SessionReport> next();

    // refusal: empty, or why the session may not stay.
    static void answer(int descriptor, const std::string& refusal);

private:
    std::string told;
};
