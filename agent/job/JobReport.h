#pragma once

#include <cstdint>
#include <string>

#include "Protocol.h"

// What a job's supervisor tells its session, one message each on their socket.
struct JobReport {
    enum class Kind {
        kNone,        // nothing new
        kNotStarted,  // errorCode and text; nothing ran
        kStarted,
        kEnded,     // result
        kTimedOut,  // result; an ordinary job is being ended, an uninterruptible one goes on
        kLost,      // the supervisor was killed
    };
    static constexpr std::size_t kMaxTextBytes = 4096;

    Kind kind = Kind::kNone;
    std::uint16_t errorCode = 0;
    std::string text;
    protocol::Result result;

    // At most kMaxTextBytes of the text go with it.
    std::string encode() const;
    // Of a message that encode() made; throws protocol::ProtocolError or std::out_of_range for
    // anything else.
    static JobReport decode(const std::string& message);
};
