#include <arpa/inet.h>
#include <cctype>
#include <fstream>
#include <netinet/in.h>

#include <gtest/gtest.h>
#include <ifaddrs.h>

#include "NetworkInterface.h"

TEST(NetworkInterface, FormatsInUpperCase) {
    const unsigned char bytes[] = {0x00, 0x1b, 0xff, 0xa0, 0x0c, 0x9d};
    EXPECT_EQ("00:1B:FF:A0:0C:9D", networkinterface::formatMac(bytes));
}

TEST(NetworkInterface, AllZeroIsNoAddress) {
    const unsigned char bytes[6] = {};
    EXPECT_EQ("", networkinterface::formatMac(bytes));
}

TEST(NetworkInterface, LoopbackHasNone) {
    EXPECT_EQ("", networkinterface::macOfLocalAddress("127.0.0.1"));
    EXPECT_EQ("", networkinterface::macOfLocalAddress("::1"));
    EXPECT_EQ("", networkinterface::macOfLocalAddress("::ffff:127.0.0.1"));
}

TEST(NetworkInterface, AddressOfNobodyHasNone) {
    EXPECT_EQ("", networkinterface::macOfLocalAddress("192.0.2.77"));
    EXPECT_EQ("", networkinterface::macOfLocalAddress(""));
    EXPECT_EQ("", networkinterface::macOfLocalAddress("no address"));
}

TEST(NetworkInterface, EveryAddressHasTheMacOfItsInterface) {
    ifaddrs* list = nullptr;
    ASSERT_EQ(0, ::getifaddrs(&list));
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET) {
            continue;
        }
        char text[INET_ADDRSTRLEN] = "";
        const auto* address = reinterpret_cast<const sockaddr_in*>(entry->ifa_addr);
        ::inet_ntop(AF_INET, &address->sin_addr, text, sizeof text);
        std::ifstream file("/sys/class/net/" + std::string(entry->ifa_name) + "/address");
        std::string expected;
        std::getline(file, expected);
        for (char& c : expected) {
            c = static_cast<char>(std::toupper(c));
        }
        if (expected == "00:00:00:00:00:00") {
            expected.clear();
        }
        EXPECT_EQ(expected, networkinterface::macOfLocalAddress(text)) << entry->ifa_name;
    }
    ::freeifaddrs(list);
}
