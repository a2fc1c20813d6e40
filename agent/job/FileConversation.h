#pragma once

#include <cstdint>
#include <string>

#include "FrameChannel.h"
#include "MasterRights.h"
#include "Protocol.h"
#include "RunDirectory.h"

// The part of a session's conversation that moves a file: from the request that was accepted to
// its end, but for the ERROR of one that failed, which is the session's to send once it is on
// record. One object serves all files of a session.
class FileConversation {
public:
    struct Outcome {
        std::string text;        // for the log, escaped
        std::uint16_t code = 0;  // of the ERROR to be sent; 0: none
        std::string error;       // its text
        bool goesOn = true;      // false: the session is to end
    };

    // All stay the caller's. uploadSilenceMs: how long a shell may say nothing in the middle of a
    // file.
    FileConversation(FrameChannel& shellChannel, const MasterRights& masterRights,
                     const RunDirectory& runDirectory, unsigned long uploadSilenceMs);

    // A file from the shell. Throws ProtocolError.
    Outcome receive(const protocol::Put& put);
    // A file to the shell.
    Outcome send(const protocol::Get& get);

private:
    std::string receiveAll(const protocol::Put& put);
    // False when nothing came in time.
    bool receiveUntil(protocol::Frame& frame, FrameChannel::Deadline deadline);
    std::string sendAll(const protocol::Get& get);
    void sendTimedOut(const std::string& text);

    FrameChannel& channel;
    const MasterRights& rights;
    const RunDirectory& directory;
    const unsigned long silenceMs;
};
