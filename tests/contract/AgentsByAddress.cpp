#include "AgentsByAddress.h"

#include <mutex>
#include <utility>

#include "AgentLink.h"
#include "CException.h"
#include "SSLClient.h"

namespace {

struct Script {
    std::mutex mutex;
    std::map<std::string, AgentsByAddress::Agent> agents;
    std::vector<AgentsByAddress::Request> requests;
    int liveClients = 0;
};

Script& script() {
    static Script only;
    return only;
}

}  // namespace

AgentsByAddress::Agent& AgentsByAddress::at(const std::string& ip) {
    const std::lock_guard<std::mutex> lock(script().mutex);
    return script().agents[ip];
}

void AgentsByAddress::reset() {
    const std::lock_guard<std::mutex> lock(script().mutex);
    script().agents.clear();
    script().requests.clear();
}

std::vector<AgentsByAddress::Request> AgentsByAddress::requests() {
    const std::lock_guard<std::mutex> lock(script().mutex);
    return script().requests;
}

int AgentsByAddress::liveClients() {
    const std::lock_guard<std::mutex> lock(script().mutex);
    return script().liveClients;
}

CResult AgentsByAddress::outcome(int exitCode, const std::string& output) {
    CResult result;
    result.setRunStatus(exitCode == 0 ? EXEC_SUCCESS : EXEC_FAILURE);
    result.setExitCode(exitCode);
    result.setRunSummary(output);
    return result;
}

SSLClient::SSLClient(std::string address, int portNumber, std::string certificate)
    : ip(std::move(address)), port(portNumber), certificateFile(std::move(certificate)) {
    const std::lock_guard<std::mutex> lock(script().mutex);
    ++script().liveClients;
}

SSLClient::~SSLClient() {
    const std::lock_guard<std::mutex> lock(script().mutex);
    --script().liveClients;
}

void SSLClient::initAndConnect() {
    const std::lock_guard<std::mutex> lock(script().mutex);
    if (script().agents.count(ip) == 0) {
        throw CException("no agent at " + ip);
    }
}

void SSLClient::execute(std::string commandLine, unsigned int timeOut, CResult* result) {
    const std::lock_guard<std::mutex> lock(script().mutex);
    script().requests.push_back({ip, port, certificateFile, commandLine, timeOut});
    const AgentsByAddress::Agent& agent = script().agents[ip];
    const auto failure = agent.failures.find(commandLine);
    if (failure != agent.failures.end()) {
        throw CException(failure->second);
    }
    const auto found = agent.answers.find(commandLine);
    *result = found == agent.answers.end() ? CResult() : found->second;
}

bool SSLClient::isFileExistedAtSlaveNode(std::string) {
    return false;
}

void SSLClient::executeEncryptedBinary(std::string, std::string, std::string,
                                       std::list<std::string>, std::list<std::string>, unsigned int,
                                       CResult*) {
    throw CException("No packaged tools here.");
}

std::string SSLClient::getKelNodeMacAddress(std::string nodeIp) {
    const std::lock_guard<std::mutex> lock(script().mutex);
    return script().agents[nodeIp].mac;
}
