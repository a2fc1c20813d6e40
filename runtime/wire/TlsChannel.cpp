#include "TlsChannel.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <utility>

#include <openssl/err.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include "SocketDial.h"
#include "TlsFault.h"
#include "TlsSocket.h"

namespace {

using Kind = ChannelError::Kind;

// How long a refused peer may take to read why.
constexpr unsigned long kLastWordsMs = 1000;
// For texts.
constexpr char kReading[] = "while waiting for it";

bool isAddressLiteral(const std::string& address) {
    unsigned char parsed[sizeof(in6_addr)];
    return inet_pton(AF_INET, address.c_str(), parsed) == 1 ||
           inet_pton(AF_INET6, address.c_str(), parsed) == 1;
}

// What the verification stopped at, kept for the message: when the handshake has failed the
// certificate is gone from the connection.
struct VerifyNote {
    int error = X509_V_OK;
    std::string text;
    std::string whose;
    std::string dialled;
};

int noteIndex() {
    static const int index = SSL_get_ex_new_index(0, nullptr, nullptr, nullptr, nullptr);
    return index;
}

int noteVerification(int accepted, X509_STORE_CTX* store) {
    const auto* ssl =
        static_cast<SSL*>(X509_STORE_CTX_get_ex_data(store, SSL_get_ex_data_X509_STORE_CTX_idx()));
    auto* note = static_cast<VerifyNote*>(SSL_get_ex_data(ssl, noteIndex()));
    if (accepted == 1 && X509_STORE_CTX_get_error_depth(store) == 0 &&
        !tlsfault::namesPurpose(X509_STORE_CTX_get_current_cert(store))) {
        X509_STORE_CTX_set_error(store, X509_V_ERR_INVALID_PURPOSE);
        accepted = 0;
    }
    if (accepted == 0 && note != nullptr && note->error == X509_V_OK) {
        note->error = X509_STORE_CTX_get_error(store);
        note->text = tlsfault::describeVerification(
            note->error, X509_STORE_CTX_get_current_cert(store), note->whose, note->dialled);
    }
    return accepted;
}

// The note is on the stack of the handshake; the connection must not keep a pointer to it.
class NoteGuard {
public:
    NoteGuard(SSL* connection, VerifyNote* note) : ssl(connection) {
        SSL_set_ex_data(ssl, noteIndex(), note);
    }
    NoteGuard(const NoteGuard&) = delete;
    NoteGuard& operator=(const NoteGuard&) = delete;
    ~NoteGuard() { SSL_set_ex_data(ssl, noteIndex(), nullptr); }

private:
    SSL* ssl;
};

bool isNotTls(int reason) {
    return reason == SSL_R_WRONG_VERSION_NUMBER || reason == SSL_R_HTTP_REQUEST ||
           reason == SSL_R_HTTPS_PROXY_REQUEST || reason == SSL_R_UNSUPPORTED_PROTOCOL ||
           reason == SSL_R_BAD_RECORD_TYPE || reason == SSL_R_PACKET_LENGTH_TOO_LONG;
}

}  // namespace

TlsChannel::TlsChannel(UniqueFd connected, std::shared_ptr<TlsContext> shared,
                       std::string peerAddress)
    : FrameChannel(std::move(connected), std::move(peerAddress)),
      context(std::move(shared)),
      ssl(SSL_new(context->get())) {
    BIO* bio = ssl ? tlssocket::newBio(socket.get()) : nullptr;
    if (bio == nullptr) {
        throw ChannelError(Kind::kFailed, "Cannot set up TLS for " + peer + ": out of memory.");
    }
    SSL_set_bio(ssl.get(), bio, bio);
    const bool server = context->isServer();
    SSL_set_verify(ssl.get(), SSL_VERIFY_PEER | (server ? SSL_VERIFY_FAIL_IF_NO_PEER_CERT : 0),
                   &noteVerification);
    if (server) {
        SSL_set_accept_state(ssl.get());
    } else {
        SSL_set_connect_state(ssl.get());
    }
}

std::unique_ptr<TlsChannel> TlsChannel::connect(const std::string& address, int port,
                                                std::shared_ptr<TlsContext> context,
                                                Deadline deadline) {
    UniqueFd connected = SocketDial::connect(address, port, deadline);
    return connectOver(std::move(connected), address, port, std::move(context), deadline);
}

std::unique_ptr<TlsChannel> TlsChannel::connectOver(UniqueFd connected, const std::string& address,
                                                    int port, std::shared_ptr<TlsContext> context,
                                                    Deadline deadline, const Cancellation* giveUp) {
    std::unique_ptr<TlsChannel> channel(
        new TlsChannel(std::move(connected), std::move(context), tlssocket::join(address, port)));
    channel->setCancellation(giveUp);
    channel->expectAddress(address);
    channel->handshake(address, deadline);
    return channel;
}

std::unique_ptr<TlsChannel> TlsChannel::accept(UniqueFd accepted,
                                               std::shared_ptr<TlsContext> context,
                                               Deadline deadline) {
    std::string peer = tlssocket::peerOf(accepted.get());
    tlssocket::prepare(accepted.get(), peer);
    return acceptOver(std::move(accepted), std::move(peer), std::move(context), deadline);
}

std::unique_ptr<TlsChannel> TlsChannel::acceptOver(UniqueFd prepared, std::string peerAddress,
                                                   std::shared_ptr<TlsContext> context,
                                                   Deadline deadline) {
    std::unique_ptr<TlsChannel> channel(
        new TlsChannel(std::move(prepared), std::move(context), std::move(peerAddress)));
    try {
        channel->handshake(std::string(), deadline);
    } catch (const ChannelError& error) {
        if (error.kind() != Kind::kTimedOut && error.kind() != Kind::kClosed) {
            // Closing with bytes unread would reset the connection and swallow the alert.
            channel->drainSocket(after(kLastWordsMs));
        }
        throw;
    }
    return channel;
}

TlsChannel::~TlsChannel() {
    if (established && !broken) {
        // Without the goodbye the end would look like a cut.
        ERR_clear_error();
        SSL_shutdown(ssl.get());
    }
    ERR_clear_error();
}

void TlsChannel::expectAddress(const std::string& address) {
    X509_VERIFY_PARAM* param = SSL_get0_param(ssl.get());
    X509_VERIFY_PARAM_set_hostflags(
        param, X509_CHECK_FLAG_NEVER_CHECK_SUBJECT | X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
    bool expected = false;
    if (isAddressLiteral(address)) {
        expected = X509_VERIFY_PARAM_set1_ip_asc(param, address.c_str()) == 1;
    } else {
        expected = X509_VERIFY_PARAM_set1_host(param, address.c_str(), address.size()) == 1 &&
                   SSL_set_tlsext_host_name(ssl.get(), address.c_str()) == 1;
    }
    if (!expected) {
        throw ChannelError(Kind::kFailed,
                           "\"" + address + "\" cannot be checked in a certificate.");
    }
}

void TlsChannel::handshake(const std::string& dialled, Deadline deadline) {
    VerifyNote note;
    note.whose = context->isServer() ? "the shell at " + peer : peer;
    note.dialled = dialled;
    const NoteGuard guard(ssl.get(), &note);
    try {
        for (;;) {
            ERR_clear_error();
            if (step(SSL_do_handshake(ssl.get()), "during the TLS handshake") > 0) {
                break;
            }
            waitForSocket(wantedEvents, deadline, "in the TLS handshake");
        }
    } catch (const ChannelError&) {
        if (note.error != X509_V_OK) {
            throw ChannelError(Kind::kRefused, note.text);
        }
        throw;
    }
    established = true;
    if (!context->isServer()) {
        watchMessages();
    }
    checkAlpn();
}

// The library answers what comes between the records of an application by itself, one message after
// the other, within a single call: without a count an agent could keep it at that for ever. The
// network process of an agent counts for itself.
void TlsChannel::watchMessages() {
    SSL_set_msg_callback(ssl.get(), &TlsChannel::noteMessage);
    SSL_set_msg_callback_arg(ssl.get(), this);
}

void TlsChannel::noteMessage(int isOwn, int /*version*/, int contentType, const void* message,
                             std::size_t length, SSL* ssl, void* channel) {
    if (isOwn != 0 || contentType != SSL3_RT_HANDSHAKE || length == 0) {
        return;
    }
    auto& self = *static_cast<TlsChannel*>(channel);
    if (*static_cast<const unsigned char*>(message) != SSL3_MT_KEY_UPDATE) {
        self.violation = "it sends what no agent sends, such as a session ticket";
    } else if (++self.keyUpdates > kMostKeyUpdates) {
        self.violation = "it changes its keys again and again";
    } else {
        return;
    }
    // Ends the call that is reading: what else comes is not looked at.
    SSL_set_shutdown(ssl, SSL_get_shutdown(ssl) | SSL_RECEIVED_SHUTDOWN);
}

void TlsChannel::requireRules() {
    if (violation != nullptr) {
        broken = true;
        ERR_clear_error();
        throw ChannelError(Kind::kFailed,
                           peer + " does not keep to the protocol: " + violation + ".");
    }
}

void TlsChannel::checkAlpn() {
    const unsigned char* selected = nullptr;
    unsigned int length = 0;
    SSL_get0_alpn_selected(ssl.get(), &selected, &length);
    if (length != sizeof protocol::kAlpn - 1 ||
        std::memcmp(selected, protocol::kAlpn, length) != 0) {
        throw wrongApplication();
    }
}

ChannelError TlsChannel::wrongApplication() const {
    return ChannelError(Kind::kFailed, peer + " speaks TLS but not \"" + protocol::kAlpn +
                                           "\": it is not a " +
                                           (context->isServer() ? "kelsh." : "kelnode agent."));
}

int TlsChannel::step(int returned, const char* doing) {
    if (returned > 0) {
        return returned;
    }
    const int savedErrno = errno;
    const int error = SSL_get_error(ssl.get(), returned);
    if (error == SSL_ERROR_WANT_READ) {
        wantedEvents = POLLIN;
        return 0;
    }
    if (error == SSL_ERROR_WANT_WRITE) {
        wantedEvents = POLLOUT;
        return 0;
    }
    fail(error, savedErrno, doing);
}

void TlsChannel::fail(int sslError, int savedErrno, const char* doing) {
    const std::string where = std::string(" ") + doing;
    const unsigned long code = ERR_peek_last_error();
    const int reason = ERR_GET_REASON(code);
    broken = sslError == SSL_ERROR_SSL || sslError == SSL_ERROR_SYSCALL;
    const bool ended = sslError == SSL_ERROR_ZERO_RETURN ||
                       (sslError == SSL_ERROR_SYSCALL && code == 0) ||
                       (sslError == SSL_ERROR_SSL && reason == SSL_R_UNEXPECTED_EOF_WHILE_READING);
    if (ended) {
        ERR_clear_error();
        const bool hasErrno = sslError == SSL_ERROR_SYSCALL && savedErrno != 0;
        throw ChannelError(Kind::kClosed,
                           peer + ": connection lost" + where + ": " +
                               (hasErrno ? std::strerror(savedErrno) : "the other end closed it") +
                               ".");
    }
    const std::string text = tlsfault::lastReason();
    if (reason == SSL_R_PEER_DID_NOT_RETURN_A_CERTIFICATE) {
        throw ChannelError(Kind::kRefused, "The shell at " + peer + " showed no certificate.");
    }
    if (tlsfault::isCertificateAlert(reason)) {
        throw ChannelError(Kind::kRefused, peer + " refused the certificate " +
                                               context->describeOwnCertificate() + ": " +
                                               tlsfault::describeAlert(reason) + ".");
    }
    if (reason == SSL_R_TLSV1_ALERT_NO_APPLICATION_PROTOCOL) {
        throw wrongApplication();
    }
    if (isNotTls(reason)) {
        throw ChannelError(Kind::kFailed, peer + " does not speak TLS 1.3 (" + text +
                                              "): is this a kelnode agent?");
    }
    throw ChannelError(Kind::kFailed,
                       "The connection to " + peer + " failed" + where + ": " + text + ".");
}

std::size_t TlsChannel::readSome(char* target, std::size_t most) {
    std::size_t count = 0;
    if (!readUnlessEnded(target, most, count)) {
        fail(SSL_ERROR_ZERO_RETURN, 0, kReading);
    }
    return count;
}

bool TlsChannel::readUnlessEnded(char* target, std::size_t most, std::size_t& count) {
    const auto piece = static_cast<int>(std::min<std::size_t>(most, 1U << 30));
    ERR_clear_error();
    const int got = SSL_read(ssl.get(), target, piece);
    count = 0;
    requireRules();
    if (got <= 0 && SSL_get_error(ssl.get(), got) == SSL_ERROR_ZERO_RETURN) {
        return false;
    }
    count = static_cast<std::size_t>(step(got, kReading));
    return true;
}

std::size_t TlsChannel::writeSome(const char* bytes, std::size_t count) {
    BIO* wire = SSL_get_wbio(ssl.get());
    const std::size_t piece = std::min<std::size_t>(count, 1U << 30);
    ERR_clear_error();
    // One call writes one record; the others follow at once.
    tlssocket::setMoreToCome(wire, piece > SSL3_RT_MAX_PLAIN_LENGTH);
    const int put = step(SSL_write(ssl.get(), bytes, static_cast<int>(piece)), "while sending");
    if (put == 0) {
        tlssocket::setMoreToCome(wire, false);
    }
    return static_cast<std::size_t>(put);
}

TlsChannel::Peer TlsChannel::lookAtPeer() {
    if (broken) {
        return Peer::kGone;
    }
    char next = 0;
    ERR_clear_error();
    const int seen = SSL_peek(ssl.get(), &next, 1);
    if (violation != nullptr) {
        broken = true;
        ERR_clear_error();
        return Peer::kGone;
    }
    if (seen > 0) {
        return Peer::kSpeaking;
    }
    const int error = SSL_get_error(ssl.get(), seen);
    ERR_clear_error();
    if (error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE) {
        return Peer::kSilent;
    }
    broken = error != SSL_ERROR_ZERO_RETURN;
    return Peer::kGone;
}

bool TlsChannel::isExpired() const {
    return tlsfault::isExpired(SSL_get0_peer_certificate(ssl.get())) ||
           tlsfault::isExpired(SSL_CTX_get0_certificate(context->get()));
}

void TlsChannel::close(Deadline deadline) noexcept {
    if (established && !broken) {
        ERR_clear_error();
        SSL_shutdown(ssl.get());
        ERR_clear_error();
    }
    broken = true;
    drainSocket(deadline);
}

std::string TlsChannel::peerCommonName() const {
    return tlsfault::commonName(SSL_get0_peer_certificate(ssl.get()));
}
