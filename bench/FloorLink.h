#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <netinet/in.h>
#include <stdexcept>
#include <string>
#include <utility>

#include <openssl/ssl.h>

// The least that two ends need to talk over mutual TLS 1.3: what bench_floor's client and server
// share. It is a yardstick for the product and therefore uses nothing of it.
namespace floorbench {

class Fault : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Throws Fault with the text, and the reason of the system or the TLS library if there is one.
void require(bool ok, const std::string& what);

template <typename T, void (*Free)(T*)>
struct Deleter {
    void operator()(T* object) const { Free(object); }
};
using Context = std::unique_ptr<SSL_CTX, Deleter<SSL_CTX, SSL_CTX_free>>;
using Session = std::unique_ptr<SSL_SESSION, Deleter<SSL_SESSION, SSL_SESSION_free>>;

// The sole owner of a descriptor.
class Descriptor {
public:
    explicit Descriptor(int opened = -1) : fd(opened) {}
    Descriptor(Descriptor&& other) noexcept : fd(other.fd) { other.fd = -1; }
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(fd, other.fd);
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor();
    int get() const { return fd; }

private:
    int fd;
};

// A context with this certificate, trusting this CA alone, TLS 1.3 and P-256 only. Both ends verify
// each other.
Context makeContext(bool server, const std::string& certificate, const std::string& key,
                    const std::string& ca);

// One connection after its handshake. One thread at a time.
class Link {
public:
    // connect: the far end must show a certificate for this address. A session is offered if there
    // is one, and the next one that the server sends is stored there; it must outlive the link.
    static Link connect(SSL_CTX* context, const std::string& ip, int port, Session* session);
    static Link accept(SSL_CTX* context, Descriptor socket);

    Link(Link&&) noexcept = default;
    Link& operator=(Link&&) noexcept = default;
    // Says good-bye: without it no session resumes.
    ~Link();

    bool isResumed() const { return SSL_session_reused(ssl.get()) == 1; }

    void send(const void* bytes, std::size_t size);
    // Exactly that many bytes. False when the far end has closed before the first of them; throws
    // when it closes later.
    bool receive(void* bytes, std::size_t size);

    // Big-endian.
    void sendNumber(std::uint64_t number);
    std::uint64_t receiveNumber();
    // Its length, then its bytes.
    void sendText(const std::string& text);
    std::string receiveText();

    // A file: its size, then its bytes.
    void sendFile(const std::string& path);
    void receiveFile(const std::string& path);

private:
    Link(SSL_CTX* context, Descriptor connected);
    Descriptor socket;
    std::unique_ptr<SSL, Deleter<SSL, SSL_free>> ssl;
};

// "127.0.0.1" and a port for the calls of the system.
sockaddr_in addressOf(const std::string& ip, int port);

}  // namespace floorbench
