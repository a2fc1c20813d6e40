#include "FloorLink.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>
#include <vector>

#include <openssl/err.h>
#include <openssl/x509v3.h>

namespace floorbench {

namespace {

// No call to the network takes longer, whatever the far end does.
constexpr int kSocketSeconds = 60;
constexpr std::size_t kPieceBytes = std::size_t{128} * 1024;
constexpr std::size_t kReadBufferBytes = std::size_t{96} * 1024;
constexpr std::size_t kMaxTextBytes = std::size_t{1} * 1024 * 1024;
constexpr unsigned char kSessionContext[] = "floor";

int keepSession(SSL* ssl, SSL_SESSION* session) {
    auto* place = static_cast<Session*>(SSL_get_app_data(ssl));
    if (place == nullptr) {
        return 0;
    }
    place->reset(session);
    return 1;
}

void prepare(int fd) {
    const int on = 1;
    const timeval limit{kSocketSeconds, 0};
    require(::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on)) == 0 &&
                ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit)) == 0 &&
                ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit)) == 0,
            "setsockopt failed");
}

Descriptor openFile(const std::string& path, int flags) {
    Descriptor file(::open(path.c_str(), flags | O_CLOEXEC, 0600));
    require(file.get() >= 0, "cannot open " + path);
    return file;
}

void writeAll(int fd, const char* bytes, std::size_t size, const std::string& path) {
    while (size > 0) {
        const ssize_t written = ::write(fd, bytes, size);
        require(written > 0 || errno == EINTR, "cannot write " + path);
        if (written > 0) {
            bytes += written;
            size -= static_cast<std::size_t>(written);
        }
    }
}

}  // namespace

void require(bool ok, const std::string& what) {
    if (ok) {
        return;
    }
    const int error = errno;
    std::array<char, 256> reason{};
    const unsigned long fault = ERR_get_error();
    if (fault != 0) {
        ERR_error_string_n(fault, reason.data(), reason.size());
    }
    throw Fault(what + ": " + (fault != 0 ? reason.data() : std::strerror(error)));
}

Descriptor::~Descriptor() {
    if (fd >= 0) {
        ::close(fd);
    }
}

sockaddr_in addressOf(const std::string& ip, int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    require(::inet_pton(AF_INET, ip.c_str(), &address.sin_addr) == 1, ip + " is no address");
    return address;
}

Context makeContext(bool server, const std::string& certificate, const std::string& key,
                    const std::string& ca) {
    Context context(SSL_CTX_new(server ? TLS_server_method() : TLS_client_method()));
    SSL_CTX* ctx = context.get();
    require(ctx != nullptr && SSL_CTX_set_min_proto_version(ctx, TLS1_3_VERSION) == 1 &&
                SSL_CTX_set1_groups_list(ctx, "P-256") == 1 &&
                SSL_CTX_use_certificate_chain_file(ctx, certificate.c_str()) == 1 &&
                SSL_CTX_use_PrivateKey_file(ctx, key.c_str(), SSL_FILETYPE_PEM) == 1 &&
                SSL_CTX_load_verify_locations(ctx, ca.c_str(), nullptr) == 1,
            "cannot use the certificate " + certificate);
    SSL_CTX_set_verify(ctx, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    SSL_CTX_set_mode(ctx, SSL_MODE_RELEASE_BUFFERS);
    SSL_CTX_set_read_ahead(ctx, 1);
    SSL_CTX_set_default_read_buffer_len(ctx, kReadBufferBytes);
    if (server) {
        SSL_CTX_set_session_cache_mode(ctx, SSL_SESS_CACHE_OFF);
        require(
            SSL_CTX_set_num_tickets(ctx, 1) == 1 &&
                SSL_CTX_set_session_id_context(ctx, kSessionContext, sizeof kSessionContext) == 1,
            "cannot set up tickets");
    } else {
        SSL_CTX_set_session_cache_mode(ctx, SSL_SESS_CACHE_CLIENT | SSL_SESS_CACHE_NO_INTERNAL);
        SSL_CTX_sess_set_new_cb(ctx, keepSession);
    }
    return context;
}

Link::Link(SSL_CTX* context, Descriptor connected)
    : socket(std::move(connected)), ssl(SSL_new(context)) {
    prepare(socket.get());
    require(ssl != nullptr && SSL_set_fd(ssl.get(), socket.get()) == 1, "no TLS connection");
}

Link Link::connect(SSL_CTX* context, const std::string& ip, int port, Session* session) {
    Descriptor fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    require(fd.get() >= 0, "no socket");
    const sockaddr_in address = addressOf(ip, port);
    require(::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0,
            "cannot connect to " + ip);
    Link link(context, std::move(fd));
    SSL* ssl = link.ssl.get();
    SSL_set_app_data(ssl, session);
    require(X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(ssl), ip.c_str()) == 1,
            "cannot check the address " + ip);
    if (session != nullptr && *session) {
        require(SSL_set_session(ssl, session->get()) == 1, "cannot offer a session to " + ip);
    }
    require(SSL_connect(ssl) == 1, "no handshake with " + ip);
    return link;
}

Link Link::accept(SSL_CTX* context, Descriptor connected) {
    Link link(context, std::move(connected));
    require(SSL_accept(link.ssl.get()) == 1, "no handshake");
    return link;
}

Link::~Link() {
    if (ssl) {
        SSL_shutdown(ssl.get());
        ERR_clear_error();
    }
}

void Link::send(const void* bytes, std::size_t size) {
    const char* at = static_cast<const char*>(bytes);
    while (size > 0) {
        std::size_t written = 0;
        require(SSL_write_ex(ssl.get(), at, size, &written) == 1, "cannot send");
        at += written;
        size -= written;
    }
}

bool Link::receive(void* bytes, std::size_t size) {
    char* at = static_cast<char*>(bytes);
    std::size_t have = 0;
    while (have < size) {
        std::size_t got = 0;
        if (SSL_read_ex(ssl.get(), at + have, size - have, &got) == 1) {
            have += got;
            continue;
        }
        if (have == 0 && SSL_get_error(ssl.get(), 0) == SSL_ERROR_ZERO_RETURN) {
            return false;
        }
        require(false, "the connection broke off");
    }
    return true;
}

void Link::sendNumber(std::uint64_t number) {
    std::array<unsigned char, 8> bytes{};
    for (std::size_t i = bytes.size(); i-- > 0; number >>= 8) {
        bytes[i] = static_cast<unsigned char>(number & 0xff);
    }
    send(bytes.data(), bytes.size());
}

std::uint64_t Link::receiveNumber() {
    std::array<unsigned char, 8> bytes{};
    require(receive(bytes.data(), bytes.size()), "the connection was closed too early");
    std::uint64_t number = 0;
    for (const unsigned char byte : bytes) {
        number = number << 8 | byte;
    }
    return number;
}

void Link::sendText(const std::string& text) {
    sendNumber(text.size());
    send(text.data(), text.size());
}

std::string Link::receiveText() {
    const std::uint64_t size = receiveNumber();
    require(size <= kMaxTextBytes, "a text is too long");
    std::string text(size, '\0');
    require(size == 0 || receive(&text[0], text.size()), "the connection was closed too early");
    return text;
}

void Link::sendFile(const std::string& path) {
    const Descriptor file = openFile(path, O_RDONLY);
    struct stat found {};
    require(::fstat(file.get(), &found) == 0, "cannot read " + path);
    auto left = static_cast<std::uint64_t>(found.st_size);
    sendNumber(left);
    std::vector<char> piece(kPieceBytes);
    while (left > 0) {
        const ssize_t got =
            ::read(file.get(), piece.data(), std::min<std::uint64_t>(piece.size(), left));
        require(got > 0, "cannot read " + path);
        send(piece.data(), static_cast<std::size_t>(got));
        left -= static_cast<std::uint64_t>(got);
    }
}

// Under another name until it is whole, as everything that is to be relied upon.
void Link::receiveFile(const std::string& path) {
    const std::string partial = path + ".part";
    const Descriptor file = openFile(partial, O_WRONLY | O_CREAT | O_TRUNC);
    std::vector<char> piece(kPieceBytes);
    for (std::uint64_t left = receiveNumber(); left > 0;) {
        const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(piece.size(), left));
        require(receive(piece.data(), size), "the file ends too early");
        writeAll(file.get(), piece.data(), size, partial);
        left -= size;
    }
    require(::rename(partial.c_str(), path.c_str()) == 0, "cannot rename " + partial);
}

}  // namespace floorbench
