#pragma once

#include <string>

#include "CException.h"

// Why a connection could not be made or was lost, be it TLS, a local socket or not connected yet.
// The text names the peer; decide by kind(), never by the text.
class ChannelError : public CException {
public:
    enum class Kind {
        kTimedOut,     // the deadline passed
        kClosed,       // the peer or the network ended the connection
        kUnreachable,  // no connection was made
        kNoAnswer,     // the same, because nothing answered in time
        kCancelled,    // nobody waits for it any more: Cancellation
        kRefused,      // one end did not accept the other's certificate
        kFailed,       // anything else: TLS broken, no ALPN, resources
    };
    ChannelError(Kind kind, std::string text);
    ChannelError(const ChannelError&) = default;
    ChannelError& operator=(const ChannelError&) = default;
    ~ChannelError() override;
    Kind kind() const { return reason; }

private:
    Kind reason;
};
