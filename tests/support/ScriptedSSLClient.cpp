#include "ScriptedSSLClient.h"

#include <utility>

#include "AgentLink.h"
#include "CException.h"
#include "SSLClient.h"

namespace scripted {

void Node::answer(const std::string& commandLine, int exitCode, const std::string& output) {
    CResult result;
    result.setRunStatus(exitCode == 0 ? EXEC_SUCCESS : EXEC_FAILURE);
    result.setExitCode(exitCode);
    result.setRunSummary(output);
    answers[commandLine] = result;
}

Node& node() {
    static Node only;
    return only;
}

void reset() {
    node() = Node();
}

}  // namespace scripted

SSLClient::SSLClient(std::string address, int portNumber, std::string certificate)
    : ip(std::move(address)), port(portNumber), certificateFile(std::move(certificate)) {
    ++scripted::node().liveClients;
}

SSLClient::~SSLClient() {
    --scripted::node().liveClients;
}

void SSLClient::initAndConnect() {
    scripted::node().connectTimeOutsMs.push_back(connectLimitMs);
    if (!scripted::node().connectFailure.empty()) {
        throw CException(scripted::node().connectFailure);
    }
}

void SSLClient::execute(std::string commandLine, unsigned int timeOut, CResult* result) {
    scripted::Node& node = scripted::node();
    node.calls.push_back({ip, port, certificateFile, commandLine, timeOut});
    if (!node.executeFailure.empty()) {
        throw CException(node.executeFailure);
    }
    const auto found = node.answers.find(commandLine);
    *result = found == node.answers.end() ? CResult() : found->second;
}

bool SSLClient::isFileExistedAtSlaveNode(std::string) {
    return false;
}

void SSLClient::executeEncryptedBinary(std::string, std::string, std::string,
                                       std::list<std::string>, std::list<std::string>, unsigned int,
                                       CResult*) {
    throw CException("The scripted node runs no packaged tools.");
}

std::string SSLClient::getKelNodeMacAddress(std::string) {
    return "";
}
