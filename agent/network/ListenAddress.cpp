#include "ListenAddress.h"

#include <arpa/inet.h>
#include <netinet/in.h>

namespace {

constexpr unsigned int kHighestPort = 65535;

bool parsePort(const std::string& text, unsigned int& number) {
    if (text.empty() || text.size() > 6 ||
        text.find_first_not_of("0123456789") != std::string::npos) {
        return false;
    }
    number = static_cast<unsigned int>(std::stoul(text));
    return number <= kHighestPort;
}

bool isAddress(int family, const std::string& host) {
    unsigned char binary[sizeof(in6_addr)];
    return ::inet_pton(family, host.c_str(), binary) == 1;
}

}  // namespace

std::string parseListenAddress(const std::string& text, ListenAddress& address) {
    const std::string::size_type colon = text.rfind(':');
    if (colon == std::string::npos) {
        return "\"" + text + "\" is not address:port";
    }
    std::string host = text.substr(0, colon);
    int family = AF_INET;
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
        host = host.substr(1, host.size() - 2);
        family = AF_INET6;
    }
    if (!isAddress(family, host)) {
        return "\"" + text + "\" does not begin with an IP address";
    }
    unsigned int port = 0;
    if (!parsePort(text.substr(colon + 1), port)) {
        return "\"" + text + "\" does not end in a port from 0 to 65535";
    }
    address.host = host;
    address.port = port;
    return "";
}
