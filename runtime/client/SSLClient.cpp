#include "SSLClient.h"

#include <cstdint>
#include <utility>

#include "AgentLink.h"
#include "CException.h"
#include "Dialer.h"
#include "FileExchange.h"
#include "NodeCall.h"
#include "NodeResult.h"
#include "Protocol.h"
#include "StopWatch.h"
#include "Text.h"
#include "TlsSocket.h"

namespace {

using protocol::Frame;
using protocol::FrameType;

constexpr char kSavePrefix[] = "[savefile]";
constexpr char kGetPrefix[] = "[getfile]";

// All that a job writes, up to the agent's word about its end.
protocol::Result receiveVerdict(AgentLink& link, noderesult::OutputCollector& output,
                                AgentLink::Deadline deadline) {
    Frame frame;
    for (link.receive(frame, deadline); frame.header.type == FrameType::kOutput;
         link.receive(frame, deadline)) {
        output.add(frame.body);
    }
    if (frame.header.type != FrameType::kResult) {
        throw unexpectedFrame(frame);
    }
    protocol::Result verdict;
    protocol::decode(frame.body, verdict);
    return verdict;
}

}  // namespace

SSLClient::SSLClient(std::string address, int agentPort, std::string certificate)
    : ip(std::move(address)), port(agentPort), certificateFile(std::move(certificate)) {}

SSLClient::SSLClient(Dialer& connections, std::string address, int agentPort,
                     std::string certificate)
    : SSLClient(std::move(address), agentPort, std::move(certificate)) {
    dialer = &connections;
}

SSLClient::~SSLClient() = default;

void SSLClient::initAndConnect() {
    if (link) {
        // Whoever connects again wants another connection, not this one out of the pool.
        link->drop();
        link.reset();
    }
    AgentLink::Patience limits;
    limits.connectLimitMs = connectLimitMs == 0 ? kConnectTimeOutMs : connectLimitMs;
    limits.beforeLeaving = patience;
    auto made = std::make_unique<AgentLink>(dialer != nullptr ? *dialer : Dialer::process(), ip,
                                            port, certificateFile, call);
    pending = !made->connect(limits);
    if (!pending) {
        link = std::move(made);
    }
}

void SSLClient::execute(std::string commandLine, unsigned int timeOut, CResult* result) {
    requireConnection();
    if (result == nullptr) {
        throw CException("A command on a node needs a result to fill.");
    }
    if (Text::startsWith(commandLine, kSavePrefix)) {
        fileexchange::save(*link, commandLine.substr(sizeof kSavePrefix - 1), timeOut, *result);
    } else if (Text::startsWith(commandLine, kGetPrefix)) {
        fileexchange::get(*link, commandLine.substr(sizeof kGetPrefix - 1), timeOut, *result);
    } else {
        protocol::Exec exec;
        exec.timeOutMs = timeOut;
        exec.commandLine = std::move(commandLine);
        runJob(protocol::encode(exec, jobFlags()), uninterruptible, timeOut, *result);
    }
}

void SSLClient::executeEncryptedBinary(std::string preCommand, std::string arguments,
                                       std::string nodePath, std::list<std::string> packagedFiles,
                                       std::list<std::string> companionFiles, unsigned int timeOut,
                                       CResult* result) {
    requireConnection();
    if (result == nullptr) {
        throw CException("A packaged tool needs a result to fill.");
    }
    protocol::RunPackaged run;
    run.timeOutMs = timeOut;
    run.preCommand = std::move(preCommand);
    run.arguments = std::move(arguments);
    run.nodePath = std::move(nodePath);
    run.packagedFiles = std::move(packagedFiles);
    run.companionFiles = std::move(companionFiles);
    runJob(protocol::encode(run, jobFlags()), true, timeOut, *result);
}

void SSLClient::keepTurn() {
    if (link) {
        link->keepTurn();
    }
}

std::uint8_t SSLClient::jobFlags() const {
    return uninterruptible ? protocol::kFlagUninterruptible : std::uint8_t{0};
}

void SSLClient::runJob(const std::string& request, bool beginsTurn, unsigned int timeOut,
                       CResult& result) {
    link->prepareForWork();
    if (beginsTurn) {
        link->beginTurn();
    }
    NodeCall& theCall = link->currentCall();
    if (theCall.isOver()) {
        // Nobody waits for it any more: it must not begin now.
        noderesult::fill(result, EXEC_TIMED_OUT, 0,
                         link->peerName() + ": the time-out was over before the job was sent.");
        return;
    }
    if (uninterruptible) {
        theCall.neverEnd();
    }
    const AgentLink::Deadline deadline = link->deadlineFor(timeOut);
    theCall.enter(NodeCall::Phase::kRunning);
    StopWatch watch;
    watch.start();
    noderesult::OutputCollector output(kMaxSummaryBytes);
    try {
        link->send(request, deadline);
        const protocol::Result verdict = receiveVerdict(*link, output, deadline);
        link->noteAnswer(noderesult::isOrderly(verdict));
        noderesult::fill(result, verdict, output.finish());
    } catch (const AgentError& error) {
        link->settle(error, false);
        throw;
    } catch (const ChannelError& error) {
        if (error.kind() != ChannelError::Kind::kTimedOut) {
            link->lose(error, uninterruptible ? " The job must not be cut short and goes on at the"
                                                " node, whose log will tell its outcome."
                                              : "");
        }
        // Closing is how the agent learns that nobody waits any more.
        link->drop();
        std::string summary = output.finish();
        if (uninterruptible) {
            noderesult::appendLine(
                summary, link->peerName() + ": the job must not be cut short and goes on.");
        }
        noderesult::fill(result, EXEC_TIMED_OUT, 0, std::move(summary));
    } catch (const protocol::ProtocolError& error) {
        link->lose(error.getErrMsg());
    }
    watch.stop();
    result.setRunTime(watch.getTime());
}

bool SSLClient::isFileExistedAtSlaveNode(std::string path) {
    requireConnection();
    protocol::Exists question;
    question.path = std::move(path);
    const std::string answer = link->ask(protocol::encode(question));
    if (answer != "0" && answer != "1") {
        link->lose("an answer that is neither yes nor no");
    }
    return answer == "1";
}

std::string SSLClient::getKelNodeMacAddress(std::string /*nodeIp*/) {
    requireConnection();
    return link->identity(answerLimitMs);
}

void SSLClient::requireConnection() const {
    if (!link || !link->isOpen()) {
        throw CException("There is no connection to " + tlssocket::join(ip, port) +
                         ": none was made, or it was lost before.");
    }
}
