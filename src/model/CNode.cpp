#include "CNode.h"

#include <utility>

CNode::CNode(std::string nodeName, std::string macAddress, std::string ipAddress,
             std::uint32_t agentPort)
    : name(std::move(nodeName)),
      mac(std::move(macAddress)),
      ip(std::move(ipAddress)),
      port(agentPort) {}

CNode::CNode(std::string nodeName, std::string macAddress, std::string ipAddress)
    : CNode(std::move(nodeName), std::move(macAddress), std::move(ipAddress), kDefaultPort) {}

CNode::CNode(std::string nodeName, std::string macAddress)
    : CNode(std::move(nodeName), std::move(macAddress), std::string(), kDefaultPort) {}

CNode& CNode::operator=(const CNode& other) {
    if (this != &other) {
        name = other.name;
        mac = other.mac;
        ip = other.ip;
        port = other.port;
        call = other.call;
    }
    return *this;
}

CNode::~CNode() = default;

std::string CNode::getName() const {
    return name;
}

std::string CNode::getMac() const {
    return mac;
}

std::string CNode::getIp() const {
    return ip;
}

std::uint32_t CNode::getPort() const {
    return port;
}

void CNode::setMac(std::string newMac) {
    mac = std::move(newMac);
}

void CNode::setIp(std::string newIp) {
    ip = std::move(newIp);
}

void CNode::setPort(unsigned int newPort) {
    port = newPort;
}

void CNode::setCall(std::shared_ptr<NodeCall> theCall) {
    call = std::move(theCall);
}

const std::shared_ptr<NodeCall>& CNode::getCall() const {
    return call;
}
