#include "BlackHoles.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>

BlackHoles::BlackHoles(int count) {
    for (int i = 0; i < count; ++i) {
        dig("127.77." + std::to_string(i / 250) + "." + std::to_string(1 + i % 250));
    }
}

void BlackHoles::dig(const std::string& ip) {
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
