#pragma once

#include <ctime>
#include <memory>
#include <string>

#include "TlsContext.h"

// What the session knows of a TLS 1.3 handshake that its network process makes: who the master is
// comes from the signed messages, never from that process's word.
//
// The private key stays here. The network process shows the messages of the handshake as far as
// they have come, and gets a signature of exactly what a server signs over them, once. Its random
// part makes this handshake unlike every other: when the client's signature follows, it must cover
// messages that begin with the very ones signed here and hold that very signature, so a recorded
// proof fits no second time. Then the client's certificates are judged as the context judges them.
//
// What this cannot tell: whether the keys of the connection are in the master's hands alone. Who
// has taken over the network process has the conversation of the master that it really serves.
//
// Not for use from several threads. Everything refused throws CException.
class HandshakeWitness {
public:
    // All messages of a handshake together, in bytes.
    static constexpr std::size_t kMaxTranscriptBytes = std::size_t{256} * 1024;

    struct Master {
        std::string certificates;  // DER, its own first, then those it sent with it
        std::string name;          // common name
        std::string subject;
        // When the first of its certificates ends; seconds since 1970.
        std::time_t validUntil = 0;
        std::string fingerprint;  // of its own certificate, SHA-256
    };

    explicit HandshakeWitness(std::shared_ptr<const TlsContext> ownContext);

    // messages: the first greeting to the server's certificate, each with its header.
    std::string sign(const std::string& messages);
    // messages: those after it to the client's signature.
    //   whose  "the shell at 127.0.0.1:4711", for the texts
    Master prove(const std::string& messages, const std::string& whose) const;

private:
    std::shared_ptr<const TlsContext> context;
    std::string signedMessages;  // empty until then
    std::string signature;
};
