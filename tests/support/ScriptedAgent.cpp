#include "ScriptedAgent.h"

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

void ScriptedAgent::answer(const std::string& commandLine, const std::string& output,
                           int exitCode) {
    answers[commandLine] = outcome(exitCode, output);
}

void ScriptedAgent::answerTool(const std::string& package, int exitCode,
                               const std::string& output) {
    toolAnswers[package] = outcome(exitCode, output);
}

ScriptedAgent& ScriptedAgent::instance() {
    static ScriptedAgent only;
    return only;
}

void ScriptedAgent::reset() {
    instance() = ScriptedAgent();
}

SSLClient::SSLClient(std::string address, int portNumber, std::string certificate)
    : ip(std::move(address)), port(portNumber), certificateFile(std::move(certificate)) {
    ScriptedAgent& agent = ScriptedAgent::instance();
    agent.mostLiveClients = std::max(agent.mostLiveClients, ++agent.liveClients);
}

SSLClient::~SSLClient() {
    --ScriptedAgent::instance().liveClients;
}

void SSLClient::initAndConnect() {
    if (!ScriptedAgent::instance().connectFailure.empty()) {
        throw CException(ScriptedAgent::instance().connectFailure);
    }
}

void SSLClient::execute(std::string commandLine, unsigned int timeOut, CResult* result) {
    ScriptedAgent& agent = ScriptedAgent::instance();
    if (commandLine.rfind("stat ", 0) == 0) {
        *result = outcome(0, std::to_string(agent.logState) + "\n");
        return;
    }
    agent.requests.push_back((uninterruptible ? "run uninterruptibly: " : "run: ") + commandLine);
    agent.timeOutsMs.push_back(timeOut);
    const auto failure = agent.lineFailures.find(commandLine);
    if (failure != agent.lineFailures.end()) {
        throw CException(failure->second);
    }
    if (uninterruptible && agent.silentTools.count(commandLine) == 0) {
        ++agent.logState;
    }
    const auto found = agent.answers.find(commandLine);
    *result = found == agent.answers.end() ? CResult() : found->second;
}

bool SSLClient::isFileExistedAtSlaveNode(std::string path) {
    ScriptedAgent& agent = ScriptedAgent::instance();
    agent.requests.push_back("exists: " + path);
    return agent.missingFiles.count(path) == 0;
}

void SSLClient::executeEncryptedBinary(std::string preCommand, std::string arguments,
                                       std::string nodePath, std::list<std::string> packagedFiles,
                                       std::list<std::string> companionFiles, unsigned int timeOut,
                                       CResult* result) {
    ScriptedAgent& agent = ScriptedAgent::instance();
    const std::string package = packagedFiles.front();
    agent.requests.push_back((uninterruptible ? "tool uninterruptibly: " : "tool: ") +
                             joined(packagedFiles) +
                             (companionFiles.empty() ? "" : " with " + joined(companionFiles)) +
                             " in " + nodePath + ": " + preCommand + "|" + arguments);
    agent.timeOutsMs.push_back(timeOut);
    const auto failure = agent.toolFailures.find(package);
    if (failure != agent.toolFailures.end()) {
        throw CException(failure->second);
    }
    if (agent.silentTools.count(package) == 0) {
        ++agent.logState;
    }
    auto found = agent.toolAnswers.find(package + " " + arguments);
    if (found == agent.toolAnswers.end()) {
        found = agent.toolAnswers.find(package);
    }
    *result = found == agent.toolAnswers.end() ? CResult() : found->second;
}

std::string SSLClient::getKelNodeMacAddress(std::string) {
    return "";
}
