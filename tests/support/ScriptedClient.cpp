#include "ScriptedClient.h"

#include <algorithm>
#include <list>
#include <utility>

#include "AgentLink.h"
#include "CException.h"
#include "SSLClient.h"

namespace {

CResult outcome(int exitCode, const std::string& output) {
    CResult result;
    result.setRunStatus(exitCode == 0 ? EXEC_SUCCESS : EXEC_FAILURE);
    result.setExitCode(exitCode);
    result.setRunSummary(output);
    return result;
}

std::string joined(const std::list<std::string>& names) {
    std::string text;
    for (const std::string& name : names) {
        text += (text.empty() ? "" : "+") + name;
    }
    return text;
}

}  // namespace

void ScriptedClient::answer(const std::string& commandLine, const std::string& output,
                            int exitCode) {
    answers[commandLine] = outcome(exitCode, output);
}

void ScriptedClient::answerTool(const std::string& package, int exitCode,
                                const std::string& output) {
    toolAnswers[package] = outcome(exitCode, output);
}

ScriptedClient& ScriptedClient::instance() {
    static ScriptedClient only;
    return only;
}

void ScriptedClient::reset() {
    instance() = ScriptedClient();
}

SSLClient::SSLClient(std::string address, int portNumber, std::string certificate)
    : ip(std::move(address)), port(portNumber), certificateFile(std::move(certificate)) {
    ScriptedClient& script = ScriptedClient::instance();
    script.mostLiveClients = std::max(script.mostLiveClients, ++script.liveClients);
}

SSLClient::~SSLClient() {
    --ScriptedClient::instance().liveClients;
}

void SSLClient::initAndConnect() {
    ScriptedClient::instance().connectTimeOutsMs.push_back(connectLimitMs);
    if (!ScriptedClient::instance().connectFailure.empty()) {
        throw CException(ScriptedClient::instance().connectFailure);
    }
}

void SSLClient::execute(std::string commandLine, unsigned int timeOut, CResult* result) {
    ScriptedClient& script = ScriptedClient::instance();
    if (commandLine.rfind("stat ", 0) == 0) {
        *result = outcome(0, std::to_string(script.logState) + "\n");
        return;
    }
    script.requests.push_back((uninterruptible ? "run uninterruptibly: " : "run: ") + commandLine);
    script.timeOutsMs.push_back(timeOut);
    script.calls.push_back({ip, port, certificateFile, commandLine, timeOut});
    const auto failure = script.lineFailures.find(commandLine);
    if (failure != script.lineFailures.end()) {
        throw CException(failure->second);
    }
    if (uninterruptible && script.silentTools.count(commandLine) == 0) {
        ++script.logState;
    }
    const auto found = script.answers.find(commandLine);
    *result = found == script.answers.end() ? CResult() : found->second;
}

bool SSLClient::isFileExistedAtSlaveNode(std::string path) {
    ScriptedClient& script = ScriptedClient::instance();
    script.requests.push_back("exists: " + path);
    return script.missingFiles.count(path) == 0;
}

void SSLClient::executeEncryptedBinary(std::string preCommand, std::string arguments,
                                       std::string nodePath, std::list<std::string> packagedFiles,
                                       std::list<std::string> companionFiles, unsigned int timeOut,
                                       CResult* result) {
    ScriptedClient& script = ScriptedClient::instance();
    const std::string package = packagedFiles.front();
    script.requests.push_back((uninterruptible ? "tool uninterruptibly: " : "tool: ") +
                              joined(packagedFiles) +
                              (companionFiles.empty() ? "" : " with " + joined(companionFiles)) +
                              " in " + nodePath + ": " + preCommand + "|" + arguments);
    script.timeOutsMs.push_back(timeOut);
    const auto failure = script.toolFailures.find(package);
    if (failure != script.toolFailures.end()) {
        throw CException(failure->second);
    }
    if (script.silentTools.count(package) == 0) {
        ++script.logState;
    }
    auto found = script.toolAnswers.find(package + " " + arguments);
    if (found == script.toolAnswers.end()) {
        found = script.toolAnswers.find(package);
    }
    *result = found == script.toolAnswers.end() ? CResult() : found->second;
}

std::string SSLClient::getKelNodeMacAddress(std::string) {
    return "";
}
