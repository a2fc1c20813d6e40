#include "NetworkProcess.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "CException.h"
#include "LocalMessages.h"
#include "Posix.h"
#include "SigningProxy.h"
#include "TlsChannel.h"
#include "TlsSocket.h"

namespace networkprocess {
namespace {

using Deadline = FrameChannel::Deadline;
using Kind = ChannelError::Kind;

constexpr int kHandshakeContent = 22;
constexpr std::size_t kProofMessages = 4;
// No shell sends any after the handshake; each costs a change of keys.
constexpr int kMostLaterMessages = 16;
constexpr std::size_t kBufferBytes = std::size_t{64} * 1024;

// The local socket is where the sandbox puts it.
void onLocalSocket(int /*signal*/) {
    const int savedErrno = errno;
    pollfd watched{STDIN_FILENO, 0, 0};
    if (::poll(&watched, 1, 0) > 0 && (watched.revents & (POLLHUP | POLLNVAL)) == POLLHUP) {
        ::_exit(EXIT_SUCCESS);
    }
    errno = savedErrno;
}

// The messages of the handshake, and what the session is asked for about them.
class Conversation {
public:
    Conversation(int localSocket, int wireSocket, Deadline limit)
        : local(localSocket), wire(wireSocket), deadline(limit) {}

    static void note(int writes, int /*version*/, int content, const void* bytes, std::size_t count,
                     SSL* /*ssl*/, void* self) {
        if (content != kHandshakeContent) {
            return;
        }
        auto& own = *static_cast<Conversation*>(self);
        if (!own.isProven) {
            own.messages.emplace_back(static_cast<const char*>(bytes), count);
        } else if (writes == 0 && ++own.laterMessages > kMostLaterMessages) {
            // The library goes on reading as long as there are more of them.
            ::shutdown(own.wire, SHUT_RDWR);
        }
    }

    std::string askForSignature() {
        localmessages::send(local, 'S', joined(0, messages.size()), deadline);
        signedCount = messages.size();
        char type = 0;
        std::string signature = localmessages::receive(local, type, kBufferBytes, deadline);
        return type == 's' ? signature : std::string();
    }

    void prove() {
        if (messages.size() < signedCount + kProofMessages) {
            throw ChannelError(Kind::kFailed, "the handshake is incomplete");
        }
        localmessages::send(local, 'P', joined(signedCount, signedCount + kProofMessages),
                            deadline);
        isProven = true;
        messages = {};
    }

private:
    std::string joined(std::size_t from, std::size_t to) const {
        std::string all;
        for (std::size_t i = from; i < to; ++i) {
            all += messages[i];
        }
        return all;
    }

    int local;
    int wire;
    Deadline deadline;
    std::vector<std::string> messages;
    std::size_t signedCount = 0;
    bool isProven = false;
    int laterMessages = 0;  // that have come since
};

// Bytes on their way in one direction.
class Buffer {
public:
    // Not filled with anything: what is never used takes no memory then.
    Buffer() : bytes(new char[kBufferBytes]) {}
    bool isEmpty() const { return first == last; }
    bool hasRoom() const { return last < kBufferBytes; }
    const char* data() const { return bytes.get() + first; }
    std::size_t size() const { return last - first; }
    char* room() { return bytes.get() + last; }
    std::size_t roomSize() const { return kBufferBytes - last; }
    void add(std::size_t count) { last += count; }
    void drop(std::size_t count) {
        first += count;
        if (first == last) {
            first = last = 0;
        }
    }

private:
    std::unique_ptr<char[]> bytes;
    std::size_t first = 0;
    std::size_t last = 0;
};

class Relay {
public:
    Relay(TlsChannel& wireChannel, int localSocket) : wire(wireChannel), local(localSocket) {}

    void run() {
        while (!sessionEnded) {
            readWire();
            writeLocal();
            readLocal();
            writeWire();
            if (!sessionEnded) {
                wait();
            }
        }
        const Deadline deadline = FrameChannel::after(localmessages::kLastBytesMs);
        while (!toWire.isEmpty()) {
            writeWire();
            if (!toWire.isEmpty() && tlssocket::wait(wire.descriptor(), POLLOUT, deadline) == 0) {
                break;
            }
        }
        wire.close(FrameChannel::after(localmessages::kLastWordsMs));
    }

private:
    void readWire() {
        try {
            wireIsDry = false;
            while (!peerEnded && toLocal.hasRoom()) {
                std::size_t got = 0;
                peerEnded = !wire.readUnlessEnded(toLocal.room(), toLocal.roomSize(), got);
                if (got == 0) {
                    wireIsDry = true;
                    return;
                }
                toLocal.add(got);
            }
        } catch (const ChannelError&) {
            peerEnded = true;
        }
    }

    void writeLocal() {
        while (!toLocal.isEmpty()) {
            const ssize_t put =
                ::send(local, toLocal.data(), toLocal.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
            if (put < 0 && errno == EINTR) {
                continue;
            }
            if (put < 0 && errno == EAGAIN) {
                return;
            }
            if (put < 0) {
                sessionEnded = true;
                return;
            }
            toLocal.drop(static_cast<std::size_t>(put));
        }
        if (peerEnded && !toldEnd) {
            toldEnd = true;
            ::shutdown(local, SHUT_WR);
        }
    }

    void readLocal() {
        while (toWire.isEmpty() && !sessionEnded) {
            const ssize_t got = ::recv(local, toWire.room(), toWire.roomSize(), MSG_DONTWAIT);
            if (got < 0 && errno == EINTR) {
                continue;
            }
            if (got < 0 && errno == EAGAIN) {
                return;
            }
            if (got <= 0) {
                sessionEnded = true;
                return;
            }
            toWire.add(static_cast<std::size_t>(got));
            writeWire();
        }
    }

    void writeWire() {
        while (!toWire.isEmpty()) {
            const std::size_t put = wire.writeSome(toWire.data(), toWire.size());
            if (put == 0) {
                return;
            }
            toWire.drop(put);
        }
    }

    void wait() {
        const bool reads = !peerEnded && toLocal.hasRoom();
        if (reads && !wireIsDry) {
            // Reading stopped for want of room: what TLS holds already is no event of the socket.
            return;
        }
        const short wireEvents =
            static_cast<short>((reads ? POLLIN : 0) | (toWire.isEmpty() ? 0 : POLLOUT));
        const short localEvents =
            static_cast<short>((toWire.isEmpty() ? POLLIN : 0) | (toLocal.isEmpty() ? 0 : POLLOUT));
        // Looked at without events too, unless that is known already: whether the session has gone.
        pollfd watched[2] = {{wireEvents != 0 ? wire.descriptor() : -1, wireEvents, 0},
                             {localEvents != 0 || !sessionGone ? local : -1, localEvents, 0}};
        if (::poll(watched, 2, sessionGone ? static_cast<int>(localmessages::kLastBytesMs) : -1) ==
            0) {
            sessionEnded = true;
        }
        sessionGone = sessionGone || (watched[1].revents & POLLHUP) != 0;
    }

    TlsChannel& wire;
    int local;
    Buffer toLocal;
    Buffer toWire;
    bool wireIsDry = false;
    bool peerEnded = false;
    bool toldEnd = false;
    bool sessionEnded = false;  // and nothing more is there from it
    bool sessionGone = false;
};

}  // namespace

void endWithSession(int local) {
    if (::signal(SIGIO, &onLocalSocket) == SIG_ERR || ::fcntl(local, F_SETOWN, ::getpid()) != 0 ||
        ::fcntl(local, F_SETFL, O_NONBLOCK | O_ASYNC) != 0) {
        Posix::throwErrno("cannot be tied to the session");
    }
}

void run(UniqueFd connection, UniqueFd local, const std::string& peer,
         const std::shared_ptr<TlsContext>& context, Deadline deadline) noexcept {
    try {
        Conversation conversation(local.get(), connection.get(), deadline);
        SSL_CTX* const shared = context->get();
        try {
            signingproxy::setSigner([&] { return conversation.askForSignature(); });
            SSL_CTX_set_msg_callback(shared, &Conversation::note);
            SSL_CTX_set_msg_callback_arg(shared, &conversation);
            // A peer that has closed its end may still be told something.
            SSL_CTX_set_options(shared, SSL_OP_IGNORE_UNEXPECTED_EOF);
            const std::unique_ptr<TlsChannel> wire =
                TlsChannel::acceptOver(std::move(connection), peer, context, deadline);
            conversation.prove();
            // From here on the relay looks at the socket.
            ::fcntl(local.get(), F_SETFL, O_NONBLOCK);
            Relay(*wire, local.get()).run();
        } catch (const ChannelError& fault) {
            localmessages::send(local.get(), 'F',
                                static_cast<char>(fault.kind()) + fault.getErrMsg(),
                                FrameChannel::after(localmessages::kLastWordsMs));
        } catch (const CException& fault) {
            localmessages::send(local.get(), 'F',
                                static_cast<char>(Kind::kFailed) + fault.getErrMsg(),
                                FrameChannel::after(localmessages::kLastWordsMs));
        }
    } catch (const std::exception&) {
        // Nobody is left to be told.
        return;
    }
}

}  // namespace networkprocess
