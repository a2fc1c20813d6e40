#pragma once

#include <memory>
#include <poll.h>

#include <openssl/ssl.h>

#include "FakeNodeAgent.h"
#include "TlsSocket.h"

// A node that keeps TLS itself busy: messages which the library takes in by itself, between the
// bytes that anybody asked for, as long as the other end stays.
class NoisyTlsNode {
public:
    enum class Noise { kTickets, kKeyUpdates, kRequestedKeyUpdates };

    // most: so many messages, then one frame with "done"; without end below 0.
    static FakeNodeAgent::RawScript script(const TlsFiles& files, Noise noise, bool greets,
                                           long most = -1) {
        std::shared_ptr<TlsContext> context = TlsContext::server(files);
        return [context, noise, greets, most](int connection) {
            const std::unique_ptr<SSL, void (*)(SSL*)> ssl(SSL_new(context->get()), &SSL_free);
            BIO* const bio = tlssocket::newBio(connection);
            SSL_set_bio(ssl.get(), bio, bio);
            SSL_clear_options(ssl.get(), SSL_OP_NO_TICKET);
            if (SSL_accept(ssl.get()) != 1 ||
                (greets && !write(ssl.get(), protocol::encode(protocol::AgentHello())))) {
                return;
            }
            long made = 0;
            while (made != most && make(ssl.get(), noise) && isThere(connection)) {
                ++made;
            }
            if (made == most) {
                static_cast<void>(
                    write(ssl.get(), FakeNodeAgent::frame(protocol::FrameType::kOutput, "done")));
                char byte = 0;
                while (SSL_read(ssl.get(), &byte, 1) > 0) {
                }
            }
        };
    }

private:
    static bool write(SSL* ssl, const std::string& bytes) {
        return SSL_write(ssl, bytes.data(), static_cast<int>(bytes.size())) > 0;
    }
    // The library passes over a peer that has closed before it has its ticket.
    static bool isThere(int connection) {
        pollfd watched{connection, POLLRDHUP, 0};
        return ::poll(&watched, 1, 0) == 0;
    }
    static bool make(SSL* ssl, Noise noise) {
        if (noise == Noise::kTickets) {
            return SSL_new_session_ticket(ssl) == 1 && SSL_do_handshake(ssl) == 1;
        }
        const int kind =
            noise == Noise::kKeyUpdates ? SSL_KEY_UPDATE_NOT_REQUESTED : SSL_KEY_UPDATE_REQUESTED;
        return SSL_key_update(ssl, kind) == 1 && SSL_do_handshake(ssl) == 1;
    }
};
