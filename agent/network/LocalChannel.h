#pragma once

#include <string>

#include "FrameChannel.h"

// Frames over a local socket, whose other end is the session's network process.
class LocalChannel : public FrameChannel {
public:
    // peerAddress: of the shell behind the network process, for messages.
    LocalChannel(UniqueFd local, std::string peerAddress);
    // Ends the conversation in order, as close() does, and waits until the network process has
    // passed on what it has, or is stuck: it ends with this process.
    ~LocalChannel() override;

    Peer lookAtPeer() override;
    void close(Deadline deadline) noexcept override;

private:
    std::size_t readSome(char* target, std::size_t most) override;
    std::size_t writeSome(const char* bytes, std::size_t count) override;
    [[noreturn]] void lost(const char* doing, int error) const;

    bool closed = false;
};
