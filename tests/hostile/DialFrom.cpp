#include "DialFrom.h"

#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <sys/socket.h>

UniqueFd dialFrom(const LocalAgent& agent, unsigned int source) {
    UniqueFd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_in from{};
    from.sin_family = AF_INET;
    from.sin_addr.s_addr = htonl((127U << 24U) + 1 + source);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<std::uint16_t>(agent.port()));
    if (!fd || ::inet_pton(AF_INET, agent.ip().c_str(), &to.sin_addr) != 1 ||
        ::bind(fd.get(), reinterpret_cast<const sockaddr*>(&from), sizeof from) != 0 ||
        (::connect(fd.get(), reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0 &&
         errno != EINPROGRESS)) {
        return UniqueFd();
    }
    return fd;
}
