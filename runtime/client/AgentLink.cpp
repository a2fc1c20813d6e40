#include "AgentLink.h"

#include <algorithm>
#include <cstdlib>
#include <unistd.h>
#include <utility>

#include <pwd.h>

#include "Dialer.h"
#include "MacAddress.h"
#include "NodeCall.h"
#include "Text.h"
#include "TlsContext.h"
#include "TlsSocket.h"

namespace {

using protocol::Frame;
using protocol::FrameType;

// Questions that need no work on the node.
constexpr unsigned long kAnswerTimeOutMs = 5000;
// The agent ends a job at its time-out and says so; that verdict gets this long to arrive.
constexpr unsigned long kVerdictGraceMs = 1000;
// The few bytes that give a turn back: a connection that does not take them at once is closed.
constexpr unsigned long kTurnSendMs = 100;
// A connection that has rested no longer than this is as good as one just made.
constexpr std::chrono::milliseconds kFresh{1000};
// What a second attempt of one command may take of the limit of the first.
constexpr unsigned int kSecondShare = 10;
std::string lookUpUser() {
    passwd entry{};
    passwd* found = nullptr;
    char buffer[4096];
    if (getpwuid_r(getuid(), &entry, buffer, sizeof buffer, &found) == 0 && found != nullptr) {
        return found->pw_name;
    }
    const char* name = std::getenv("LOGNAME");
    return name != nullptr ? name : "uid " + std::to_string(getuid());
}

const std::string& userName() {
    // Asked once: a directory service would make every connection wait.
    static const std::string* name = new std::string(lookUpUser());
    return *name;
}

}  // namespace

protocol::ProtocolError unexpectedFrame(const Frame& frame) {
    return protocol::ProtocolError(std::string("a ") + protocol::name(frame.header.type) +
                                   " frame where none belongs");
}

AgentLink::AgentLink(Dialer& connections, std::string address, int agentPort,
                     const std::string& certificateFile, std::shared_ptr<NodeCall> theCall)
    : dialer(connections),
      ip(std::move(address)),
      port(agentPort),
      context(dialer.contextFor(certificateFile)),
      call(theCall ? std::move(theCall) : std::make_shared<NodeCall>(0)) {}

AgentLink::~AgentLink() {
    if (isOpen() && endedWell && (keepsTurn || giveTurnBack())) {
        connection.channel->setCancellation(nullptr);
        dialer.pool().give(context.get(), std::move(connection));
    }
}

// Anything else than the number of another command would do as well, and a node of any age takes
// it.
bool AgentLink::giveTurnBack() noexcept {
    if (!connection.hasTurn) {
        return true;
    }
    try {
        connection.channel->sendFrame(shellHello(0), TlsChannel::after(kTurnSendMs));
        connection.toldSequence = 0;
        connection.hasTurn = false;
        return true;
    } catch (const std::exception&) {
        // Closing gives it back too.
        return false;
    }
}

bool AgentLink::connect(const Patience& patience) {
    connectLimit = patience.connectLimitMs;
    return takeRested() || dial(patience);
}

AgentLink::Deadline AgentLink::deadlineFor(unsigned int timeOutMs) const {
    return call->limit(timeOutMs == 0 ? TlsChannel::never()
                                      : TlsChannel::after(static_cast<unsigned long>(timeOutMs) +
                                                          kVerdictGraceMs));
}

std::string AgentLink::peerName() const {
    return tlssocket::join(ip, port);
}

std::string AgentLink::identity(unsigned int timeOutMs) {
    if (connection.mac) {
        return *connection.mac;
    }
    std::string said;
    try {
        said = ask(protocol::encodeMacRequest(), timeOutMs);
    } catch (const AgentError& error) {
        if (error.code() == protocol::kErrorProtocol) {
            throw;
        }
    }
    // It goes into logs and onto the terminal: whatever else a node may say is not taken. White
    // space around it is for the caller to judge.
    const std::string bare = Text::trimmed(said);
    connection.mac = bare.empty() || macaddress::isValid(bare, ":") ? said : kNoAddress;
    return *connection.mac;
}

void AgentLink::prepareForWork() {
    prove();
    if (!call->expectedMac()) {
        return;
    }
    const std::string mac = identity();
    if (!mac.empty() && mac != *call->expectedMac()) {
        call->noteOtherNode();
        throw CException(peerName() + " is another node than the configured one.");
    }
}

void AgentLink::prove() {
    if (proven || Clock::now() - connection.heard < kFresh) {
        return;
    }
    connection.mac.reset();
    static_cast<void>(identity());
}

std::string AgentLink::ask(const std::string& request, unsigned int timeOutMs) {
    const Deadline deadline =
        call->limit(TlsChannel::after(timeOutMs == 0 ? kAnswerTimeOutMs : timeOutMs));
    call->enter(NodeCall::Phase::kAsking);
    try {
        return proven ? askOnce(request, deadline) : askAgain(request, deadline);
    } catch (const AgentError& error) {
        settle(error, false);
        throw;
    } catch (const protocol::ProtocolError& error) {
        lose(error.getErrMsg());
    } catch (const ChannelError& error) {
        if (!isOpen()) {
            throw;  // no new connection could be made
        }
        lose(error);
    }
}

void AgentLink::send(const std::string& request, Deadline deadline) {
    endedWell = false;
    if (connection.toldSequence == call->commandNumber()) {
        connection.channel->sendFrame(request, deadline);
        return;
    }
    // The connection has served another command before: the node must not record this request under
    // that one's number.
    connection.channel->sendFrame(shellHello(call->commandNumber()) + request, deadline);
    connection.toldSequence = call->commandNumber();
}

bool AgentLink::sendUnlessAnswered(const std::string& frame, Deadline deadline) {
    return connection.channel->sendFrameUnlessAnswered(frame, deadline);
}

void AgentLink::receive(Frame& frame, Deadline deadline) {
    connection.channel->receiveFrame(frame, deadline);
    if (frame.header.type == FrameType::kError) {
        protocol::Error error;
        protocol::decode(frame.body, error);
        throw AgentError(error, peerName());
    }
}

void AgentLink::noteAnswer(bool wasGood) {
    connection.heard = Clock::now();
    proven = true;
    endedWell = wasGood;
    call->noteWord();
}

void AgentLink::settle(const AgentError& error, bool ends) {
    if (ends || error.code() == protocol::kErrorProtocol) {
        drop();
        return;
    }
    // A session keeps the rights with which it began: who was refused shall find the new ones.
    noteAnswer(error.code() != protocol::kErrorRefused);
}

void AgentLink::drop() {
    connection.channel.reset();
}

void AgentLink::lose(const std::string& reason) {
    drop();
    throw CException(peerName() + ": connection lost, " + reason);
}

void AgentLink::lose(const ChannelError& reason, const std::string& consequence) {
    const std::string text = reason.getErrMsg() + consequence;
    if (reason.kind() == ChannelError::Kind::kClosed) {
        // Says so itself.
        drop();
        throw CException(text);
    }
    lose(text);
}

bool AgentLink::takeRested() {
    AgentConnection rested = dialer.pool().take(context.get(), peerName());
    if (!rested.channel) {
        return false;
    }
    adopt(std::move(rested));
    proven = false;
    // Untouched it may go back.
    endedWell = true;
    return true;
}

void AgentLink::adopt(AgentConnection made) {
    connection = std::move(made);
    connection.channel->setCancellation(call->cancellation());
}

bool AgentLink::dial(const Patience& patience) {
    SilentPeers& silent = dialer.silentPeers();
    const std::string peer = peerName();
    const Clock::time_point now = Clock::now();
    unsigned int most = silent.limitFor(peer, patience.connectLimitMs);
    if (call->wasSilent()) {
        // This command has waited for it before: nobody shall wait the same time twice.
        most = std::min(most, std::max(patience.connectLimitMs / kSecondShare, 1U));
    }
    const Clock::time_point end = call->limit(now + std::chrono::milliseconds(most));
    const auto limit = std::chrono::ceil<std::chrono::milliseconds>(end - now).count();
    Patience bounded = patience;
    bounded.connectLimitMs = static_cast<unsigned int>(std::max<long long>(limit, 1));
    try {
        if (!connectWithin(bounded)) {
            return false;
        }
    } catch (const ChannelError& error) {
        call->noteDial(error.kind());
        if (error.kind() == ChannelError::Kind::kTimedOut ||
            error.kind() == ChannelError::Kind::kNoAnswer) {
            silent.noteSilence(peer, bounded.connectLimitMs);
            call->noteSilence();
        }
        throw;
    }
    call->noteDial(std::nullopt);
    silent.noteAnswer(peer);
    return true;
}

bool AgentLink::connectWithin(const Patience& patience) {
    endedWell = false;
    // The limit is for the node to answer in; standing in line is not the node's fault. Only what
    // needs the processor stands in line: a silent network must not hold up the others.
    const std::chrono::milliseconds limit(patience.connectLimitMs);
    const Clock::time_point begun = Clock::now();
    call->enter(NodeCall::Phase::kDialling);
    UniqueFd connected =
        dialer.dial(ip, port, begun + limit, patience.beforeLeaving, call->cancellation());
    if (!connected) {
        return false;
    }
    const Clock::time_point reached = Clock::now();
    call->enter(NodeCall::Phase::kInLine);
    const ConnectGate::Turn turn(dialer.gate(), call->limit(reached + limit), call->cancellation());
    const Clock::duration left = limit - (reached - begun);
    const Deadline deadline =
        call->limit(Clock::now() + std::max<Clock::duration>(left, std::chrono::milliseconds(1)));
    call->enter(NodeCall::Phase::kHandshake);
    AgentConnection made;
    made.channel = TlsChannel::connectOver(std::move(connected), ip, port, context, deadline,
                                           call->cancellation());
    adopt(std::move(made));
    try {
        greet(deadline);
    } catch (const protocol::ProtocolError& error) {
        drop();
        throw CException(peerName() + " does not speak as a kelnode agent: " + error.getErrMsg() +
                         ".");
    } catch (const CException&) {
        drop();
        throw;
    }
    connection.made = Clock::now();
    connection.heard = connection.made;
    proven = true;
    return true;
}

void AgentLink::greet(Deadline deadline) {
    // A handshake that the agent refuses still looks finished from here: only its greeting proves
    // that it accepted our certificate.
    Frame frame;
    receive(frame, deadline);
    if (frame.header.type != FrameType::kAgentHello) {
        throw unexpectedFrame(frame);
    }
    protocol::AgentHello agent;
    protocol::decode(frame.body, agent);
    connection.version = protocol::commonVersion(agent);
    if (connection.version == 0) {
        throw CException(peerName() + ": this kelsh (" KELSH_BUILD ") speaks protocol version " +
                         std::to_string(protocol::kLowestVersion) + " to " +
                         std::to_string(protocol::kHighestVersion) + ", the agent (" + agent.build +
                         ") speaks " + std::to_string(agent.lowestVersion) + " to " +
                         std::to_string(agent.highestVersion) + ": update the older one.");
    }
    connection.channel->sendFrame(shellHello(call->commandNumber()), deadline);
    connection.toldSequence = call->commandNumber();
}

std::string AgentLink::shellHello(std::uint32_t number) const {
    protocol::ShellHello hello;
    hello.version = connection.version;
    hello.build = KELSH_BUILD;
    hello.user = userName();
    hello.sequence = number;
    return protocol::encode(hello);
}

std::string AgentLink::askOnce(const std::string& request, Deadline deadline) {
    send(request, deadline);
    Frame frame;
    receive(frame, deadline);
    if (frame.header.type != FrameType::kAnswer) {
        throw unexpectedFrame(frame);
    }
    protocol::Answer answer;
    protocol::decode(frame.body, answer);
    noteAnswer(true);
    return answer.text;
}

// Over a connection that has rested: where it turns out dead, a question does no harm when it is
// asked a second time, over a new one.
std::string AgentLink::askAgain(const std::string& request, Deadline deadline) {
    try {
        return askOnce(request,
                       std::min(deadline, TlsChannel::after(std::max(connectLimit / 2, 1U))));
    } catch (const ChannelError&) {
        drop();
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) {
        throw ChannelError(ChannelError::Kind::kTimedOut, peerName() + " did not answer in time.");
    }
    Patience again;
    again.connectLimitMs = std::min(connectLimit, static_cast<unsigned int>(left));
    static_cast<void>(dial(again));
    call->enter(NodeCall::Phase::kAsking);
    return askOnce(request, deadline);
}
