#include "NetworkInterface.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <linux/if_packet.h>
#include <net/if_arp.h>
#include <netinet/in.h>

#include <ifaddrs.h>

#include "FreedBy.h"
#include "Text.h"

namespace {

constexpr unsigned int kMacBytes = 6;

using Interfaces = FreedBy<ifaddrs, freeifaddrs>;

Interfaces listInterfaces() {
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0) {
        return nullptr;
    }
    return Interfaces(list);
}

std::string textOf(const sockaddr* address) {
    char text[INET6_ADDRSTRLEN] = "";
    if (address->sa_family == AF_INET) {
        sockaddr_in v4{};
        std::memcpy(&v4, address, sizeof v4);
        ::inet_ntop(AF_INET, &v4.sin_addr, text, sizeof text);
    } else if (address->sa_family == AF_INET6) {
        sockaddr_in6 v6{};
        std::memcpy(&v6, address, sizeof v6);
        ::inet_ntop(AF_INET6, &v6.sin6_addr, text, sizeof text);
    }
    return text;
}

std::string plainAddress(const std::string& address) {
    static const std::string mapped = "::ffff:";
    const bool isMapped =
        Text::startsWith(address, mapped) && address.find('.') != std::string::npos;
    return isMapped ? address.substr(mapped.size()) : address;
}

std::string nameOfHolder(const ifaddrs* list, const std::string& address) {
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr != nullptr && textOf(entry->ifa_addr) == address) {
            // An alias ("eth0:1") has the hardware address of its interface.
            const std::string name = entry->ifa_name;
            return name.substr(0, name.find(':'));
        }
    }
    return "";
}

}  // namespace

namespace networkinterface {

std::string formatMac(const unsigned char* bytes) {
    static const char digits[] = "0123456789ABCDEF";
    if (std::all_of(bytes, bytes + kMacBytes, [](unsigned char byte) { return byte == 0; })) {
        return "";
    }
    std::string text;
    for (unsigned int i = 0; i < kMacBytes; ++i) {
        if (i > 0) {
            text += ':';
        }
        text += digits[bytes[i] >> 4U];
        text += digits[bytes[i] & 15U];
    }
    return text;
}

std::string macOfLocalAddress(const std::string& address) {
    const Interfaces list = listInterfaces();
    const std::string name = nameOfHolder(list.get(), plainAddress(address));
    if (name.empty()) {
        return "";
    }
    for (const ifaddrs* entry = list.get(); entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_PACKET ||
            name != entry->ifa_name) {
            continue;
        }
        sockaddr_ll link{};
        std::memcpy(&link, entry->ifa_addr, sizeof link);
        return link.sll_halen == kMacBytes && link.sll_hatype != ARPHRD_LOOPBACK
                   ? formatMac(link.sll_addr)
                   : "";
    }
    return "";
}

}  // namespace networkinterface
