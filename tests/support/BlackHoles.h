#pragma once

#include <arpa/inet.h>
#include <list>
#include <netinet/in.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <vector>

#include "UniqueFd.h"

// Addresses that nobody answers: on each, a socket listens whose queue is full, so that the kernel
// drops whatever comes. Two descriptors for each of them.
class BlackHoles {
public:
    struct Address {
        std::string ip;
        int port = 0;
    };

    // On 127.77.x.y, at most 60000.
    explicit BlackHoles(int count) {
        for (int i = 0; i < count; ++i) {
            dig("127.77." + std::to_string(i / 250) + "." + std::to_string(1 + i % 250));
        }
    }

    const std::vector<Address>& addresses() const { return all; }

private:
    void dig(const std::string& ip) {
        UniqueFd hole(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        UniqueFd filling(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        socklen_t length = sizeof address;
        auto* generic = reinterpret_cast<sockaddr*>(&address);
        // A queue of length 0 holds one connection.
        if (!hole || !filling || inet_pton(AF_INET, ip.c_str(), &address.sin_addr) != 1 ||
            bind(hole.get(), generic, length) != 0 || listen(hole.get(), 0) != 0 ||
            getsockname(hole.get(), generic, &length) != 0 ||
            connect(filling.get(), generic, length) != 0) {
            throw std::runtime_error("no black hole at " + ip);
        }
        all.push_back({ip, ntohs(address.sin_port)});
        sockets.push_back(std::move(hole));
        sockets.push_back(std::move(filling));
    }

    std::vector<Address> all;
    std::list<UniqueFd> sockets;
};
