#include "NodeAccess.h"

#include <algorithm>

#include "CNode.h"
#include "Dialer.h"
#include "SSLClient.h"

namespace nodeaccess {

unsigned int connectLimit(unsigned int timeOutMs) {
    return timeOutMs == 0 ? SSLClient::kConnectTimeOutMs
                          : std::clamp(timeOutMs / 3, 1U, SSLClient::kConnectTimeOutMs);
}

std::unique_ptr<SSLClient> connect(const CNode& node, unsigned int timeOutMs) {
    auto client = std::make_unique<SSLClient>(node.getIp(), static_cast<int>(node.getPort()),
                                              Dialer::process().certificateFile());
    client->workFor(node.getCall());
    client->initAndConnect(connectLimit(timeOutMs));
    return client;
}

}  // namespace nodeaccess
