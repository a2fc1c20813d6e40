#pragma once

#include <cstdint>
#include <memory>
#include <string>

class NodeCall;

// One managed machine: its name, the MAC address it must report, and where its agent listens.
// A plain value. Built and changed on the main thread; workers only read it while a command runs.
class CNode {
public:
    static constexpr std::uint32_t kDefaultPort = 4422;

    // The MAC comes before the IP; docs/compatibility.md.
    CNode(std::string nodeName, std::string macAddress, std::string ipAddress,
          std::uint32_t agentPort);
    CNode(std::string nodeName, std::string macAddress, std::string ipAddress);
    CNode(std::string nodeName, std::string macAddress);
    CNode(const CNode&) = default;
    CNode& operator=(const CNode& other);
    virtual ~CNode();

    // The name is fixed at construction: it is the key under which the node is known.
    std::string getName() const;
    std::string getMac() const;
    std::string getIp() const;
    std::uint32_t getPort() const;

    void setMac(std::string newMac);
    void setIp(std::string newIp);
    void setPort(unsigned int newPort);

    // What a worker's copy of the node is the target of; null for the nodes of the configuration.
    void setCall(std::shared_ptr<NodeCall> theCall);
    const std::shared_ptr<NodeCall>& getCall() const;

private:
    std::string name;
    std::string mac;
    std::string ip;  // an address or a host name
    std::uint32_t port;
    std::shared_ptr<NodeCall> call;
};
