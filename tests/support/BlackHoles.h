#pragma once

#include <list>
#include <string>
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
    explicit BlackHoles(int count);

    const std::vector<Address>& addresses() const { return all; }

private:
    void dig(const std::string& ip);

    std::vector<Address> all;
    std::list<UniqueFd> sockets;
};
