#include "SSLClient.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <unistd.h>
#include <utility>

#include <pwd.h>

#include "CException.h"
#include "ConnectGate.h"
#include "ConnectionPool.h"
#include "FileReplacement.h"
#include "FileSource.h"
#include "Protocol.h"
#include "StopWatch.h"
#include "TlsChannel.h"
#include "TlsSocket.h"

namespace {

using protocol::Frame;
using protocol::FrameType;

constexpr char kSavePrefix[] = "[savefile]";
constexpr char kGetPrefix[] = "[getfile]";
// Questions that need no work on the node.
constexpr unsigned long kAnswerTimeOutMs = 5000;
// The agent ends a job at its time-out and says so; that verdict gets this long to arrive.
constexpr unsigned long kVerdictGraceMs = 1000;

// A connection that has rested no longer than this is as good as one just made.
constexpr std::chrono::milliseconds kFresh{1000};

// Handshakes made side by side. More of them are not faster, only later.
constexpr std::size_t kConnectsAtOnce = 64;

ConnectGate& connectGate() {
    // Never destroyed, as the settings below.
    static auto* gate = new ConnectGate(kConnectsAtOnce);
    return *gate;
}

// The process-wide settings of all clients. Never destroyed: workers left behind at exit may still
// ask for them.
struct Settings {
    std::mutex mutex;
    std::string privateKeyFile;  // guarded by mutex
    std::atomic<unsigned int> sequence{0};
};

Settings& settings() {
    static auto* all = new Settings;
    return *all;
}

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

// The agent's ERROR frame.
class AgentError : public CException {
public:
    AgentError(const protocol::Error& error, const std::string& peer)
        : CException(peer + ": " + error.text), errorCode(error.code) {}
    std::uint16_t code() const { return errorCode; }

private:
    std::uint16_t errorCode;
};

AgentError decodeError(const Frame& frame, const std::string& peer) {
    protocol::Error error;
    protocol::decode(frame.body, error);
    return AgentError(error, peer);
}

protocol::ProtocolError unexpected(const Frame& frame) {
    return protocol::ProtocolError(std::string("a ") + protocol::name(frame.header.type) +
                                   " frame where none belongs");
}

TlsChannel::Deadline deadlineFor(unsigned int timeOut) {
    return timeOut == 0 ? TlsChannel::never()
                        : TlsChannel::after(static_cast<unsigned long>(timeOut) + kVerdictGraceMs);
}

void appendLine(std::string& text, const std::string& line) {
    if (!text.empty() && text.back() != '\n') {
        text += '\n';
    }
    text += line;
}

// The output of a job, kept up to the limit and counted beyond it.
class OutputCollector {
public:
    void add(const std::string& bytes) {
        const std::size_t kept = std::min(bytes.size(), SSLClient::kMaxSummaryBytes - text.size());
        text.append(bytes, 0, kept);
        dropped += bytes.size() - kept;
    }

    std::string finish() {
        if (dropped > 0) {
            appendLine(text,
                       "[" + std::to_string(dropped) + " more bytes of output were left out]\n");
        }
        return std::move(text);
    }

private:
    std::string text;
    unsigned long long dropped = 0;
};

void fillOutcome(CResult& result, int status, int exitCode, std::string summary) {
    result.setRunStatus(status);
    result.setExitCode(exitCode);
    result.setRunSummary(std::move(summary));
}

void fillFromVerdict(CResult& result, const protocol::Result& verdict, std::string summary) {
    if (!verdict.text.empty()) {
        appendLine(summary, verdict.text);
    }
    switch (verdict.ending) {
        case protocol::Result::Ending::kExited:
            fillOutcome(result, verdict.value == 0 ? EXEC_SUCCESS : EXEC_FAILURE, verdict.value,
                        std::move(summary));
            break;
        case protocol::Result::Ending::kSignaled:
            fillOutcome(result, EXEC_FAILURE, 128 + verdict.value, std::move(summary));
            break;
        case protocol::Result::Ending::kTimedOut:
            fillOutcome(result, EXEC_TIMED_OUT, 0, std::move(summary));
            break;
        case protocol::Result::Ending::kCancelled:
            appendLine(summary, "The job was cancelled at the node.");
            fillOutcome(result, EXEC_FAILURE, 0, std::move(summary));
            break;
    }
}

std::string timedOutText(const std::string& path, std::uint64_t done, std::uint64_t total,
                         unsigned int timeOut) {
    return "\"" + path + "\": " + std::to_string(done) + " of " + std::to_string(total) +
           " bytes were copied when the time-out of " + std::to_string(timeOut) +
           " ms ran out; nothing was replaced. \"-t\" gives it more time.";
}

// A job that was ended before its time may leave more than its result behind.
bool isOrderly(const protocol::Result& verdict) {
    return verdict.ending == protocol::Result::Ending::kExited ||
           verdict.ending == protocol::Result::Ending::kSignaled;
}

bool hasPrefix(const std::string& text, const char* prefix) {
    return text.rfind(prefix, 0) == 0;
}

// An ERROR that ends a transfer: the file is at fault, not the connection.
void fillFromError(CResult& result, const AgentError& error, const std::string& timedOut) {
    const bool late = error.code() == protocol::kErrorTimedOut;
    fillOutcome(result, late ? EXEC_TIMED_OUT : EXEC_FAILURE, 0,
                late ? timedOut : error.getErrMsg());
}

// Receives one file; the connection's faults leave it as exceptions.
class IncomingFile {
public:
    IncomingFile(const std::string& path, const std::string& peer)
        : target(path), filePath(path), peerName(peer) {}

    std::uint64_t received() const { return target.receivedBytes(); }
    std::uint64_t expected() const { return info.size; }

    // Takes one frame of the answer to GET; true after the last.
    bool take(const Frame& frame) {
        switch (frame.header.type) {
            case FrameType::kFileInfo:
                if (started) {
                    throw unexpected(frame);
                }
                protocol::decode(frame.body, info);
                started = true;
                target.open();
                return false;
            case FrameType::kData:
                if (!started || frame.body.size() > info.size - target.receivedBytes()) {
                    throw unexpected(frame);
                }
                target.write(frame.body);
                return false;
            case FrameType::kEnd:
                if (!started) {
                    throw unexpected(frame);
                }
                finish(frame);
                return true;
            case FrameType::kError:
                throw decodeError(frame, peerName);
            default:
                throw unexpected(frame);
        }
    }

    std::string summary() const {
        return "\"" + filePath + "\" was copied from " + peerName + " (" +
               std::to_string(info.size) + " bytes, SHA-256 " + FileDigest::shortHex(digest) + ").";
    }

private:
    void finish(const Frame& frame) {
        protocol::End end;
        protocol::decode(frame.body, end);
        digest = target.finish();
        if (target.receivedBytes() != info.size || digest != end.digest) {
            throw FileError("\"" + filePath + "\" arrived damaged from " + peerName +
                            "; nothing was replaced.");
        }
        target.commit(info.mode);
    }

    FileReplacement target;
    std::string filePath;
    std::string peerName;
    protocol::FileInfo info;
    std::string digest;
    bool started = false;
};

// Sends all of the file. False as soon as the agent answers before its end.
bool sendContent(TlsChannel& channel, FileSource& source, TlsChannel::Deadline deadline) {
    std::string frame;
    while (source.nextFrame(frame)) {
        if (!channel.sendFrameUnlessAnswered(frame, deadline)) {
            return false;
        }
    }
    protocol::End end;
    end.digest = source.finish();
    return channel.sendFrameUnlessAnswered(protocol::encode(end), deadline);
}

}  // namespace

SSLClient::SSLClient(std::string address, int agentPort, std::string certificate)
    : ip(std::move(address)), port(agentPort), certificateFile(std::move(certificate)) {}

SSLClient::~SSLClient() {
    leaveToPool();
}

void SSLClient::leaveToPool() noexcept {
    if (channel && endedWell) {
        ConnectionPool::instance().give(context.get(),
                                        {std::move(channel), version, toldSequence, made, heard});
    }
}

void SSLClient::setPrivateKeyFile(std::string file) {
    Settings& all = settings();
    const std::lock_guard<std::mutex> lock(all.mutex);
    all.privateKeyFile = std::move(file);
}

void SSLClient::setCommandSequence(unsigned int sequence) {
    settings().sequence = sequence;
}

void SSLClient::initAndConnect() {
    initAndConnect(kConnectTimeOutMs);
}

void SSLClient::initAndConnect(unsigned int timeOutMs) {
    connectLimitMs = timeOutMs == 0 ? kConnectTimeOutMs : timeOutMs;
    channel.reset();
    TlsFiles files;
    files.certificateFile = certificateFile;
    {
        Settings& all = settings();
        const std::lock_guard<std::mutex> lock(all.mutex);
        files.privateKeyFile = all.privateKeyFile;
    }
    context = TlsContext::client(files);
    sequence = settings().sequence;
    if (!takeRested()) {
        dial(connectLimitMs);
    }
}

bool SSLClient::takeRested() {
    AgentConnection rested = ConnectionPool::instance().take(context.get(), peerName());
    if (!rested.channel) {
        return false;
    }
    channel = std::move(rested.channel);
    version = rested.version;
    toldSequence = rested.toldSequence;
    made = rested.made;
    heard = rested.heard;
    proven = false;
    // Untouched it may go back.
    endedWell = true;
    return true;
}

void SSLClient::dial(unsigned int limitMs) {
    endedWell = false;
    // The limit is for the node to answer in; standing in line is not the node's fault. Only what
    // needs the processor stands in line: a silent network must not hold up the others.
    const Clock::time_point begun = Clock::now();
    UniqueFd connected = tlssocket::connect(ip, port, TlsChannel::after(limitMs));
    const Clock::time_point reached = Clock::now();
    const ConnectGate::Turn turn(connectGate(), TlsChannel::after(limitMs));
    const Clock::duration left = std::chrono::milliseconds(limitMs) - (reached - begun);
    const TlsChannel::Deadline deadline =
        Clock::now() + std::max<Clock::duration>(left, std::chrono::milliseconds(1));
    channel = TlsChannel::connectOver(std::move(connected), ip, port, context, deadline);
    try {
        greet(deadline);
    } catch (const protocol::ProtocolError& error) {
        channel.reset();
        throw CException(peerName() + " does not speak as a kelnode agent: " + error.getErrMsg() +
                         ".");
    } catch (const CException&) {
        channel.reset();
        throw;
    }
    made = Clock::now();
    heard = made;
    proven = true;
}

void SSLClient::greet(Clock::time_point deadline) {
    // A handshake that the agent refuses still looks finished from here: only its greeting proves
    // that it accepted our certificate.
    const Frame frame = channel->receiveFrame(deadline);
    if (frame.header.type == FrameType::kError) {
        throw decodeError(frame, peerName());
    }
    if (frame.header.type != FrameType::kAgentHello) {
        throw unexpected(frame);
    }
    protocol::AgentHello agent;
    protocol::decode(frame.body, agent);
    version = protocol::commonVersion(agent);
    if (version == 0) {
        throw CException(peerName() + ": this kelsh (" KELSH_BUILD ") speaks protocol version " +
                         std::to_string(protocol::kLowestVersion) + " to " +
                         std::to_string(protocol::kHighestVersion) + ", the agent (" + agent.build +
                         ") speaks " + std::to_string(agent.lowestVersion) + " to " +
                         std::to_string(agent.highestVersion) + ": update the older one.");
    }
    channel->sendFrame(shellHello(), deadline);
    toldSequence = sequence;
}

std::string SSLClient::shellHello() const {
    protocol::ShellHello hello;
    hello.version = version;
    hello.build = KELSH_BUILD;
    hello.user = userName();
    hello.sequence = sequence;
    return protocol::encode(hello);
}

// Every request goes this way.
void SSLClient::send(const std::string& request, Clock::time_point deadline) {
    endedWell = false;
    if (toldSequence == sequence) {
        channel->sendFrame(request, deadline);
        return;
    }
    // The connection has served another command before: the node must not record this request under
    // that one's number.
    channel->sendFrame(shellHello() + request, deadline);
    toldSequence = sequence;
}

void SSLClient::noteAnswer(bool wasGood) {
    heard = Clock::now();
    proven = true;
    endedWell = wasGood;
}

// What becomes of the connection after an ERROR of the agent.
void SSLClient::settle(std::uint16_t errorCode, bool ends) {
    if (ends || errorCode == protocol::kErrorProtocol) {
        channel.reset();
        return;
    }
    // A session keeps the rights with which it began: who was refused shall find the new ones.
    noteAnswer(errorCode != protocol::kErrorRefused);
}

void SSLClient::prove() {
    if (proven || Clock::now() - heard < kFresh) {
        return;
    }
    try {
        (void)ask(protocol::encodeMacRequest());
    } catch (const AgentError&) {
        // An answer too.
    }
}

void SSLClient::setUninterruptible(bool on) {
    uninterruptible = on;
}

void SSLClient::execute(std::string commandLine, unsigned int timeOut, CResult* result) {
    requireChannel();
    if (result == nullptr) {
        throw CException("A command on a node needs a result to fill.");
    }
    if (hasPrefix(commandLine, kSavePrefix)) {
        saveFile(commandLine.substr(sizeof kSavePrefix - 1), timeOut, *result);
    } else if (hasPrefix(commandLine, kGetPrefix)) {
        getFile(commandLine.substr(sizeof kGetPrefix - 1), timeOut, *result);
    } else {
        protocol::Exec exec;
        exec.timeOutMs = timeOut;
        exec.commandLine = std::move(commandLine);
        runJob(protocol::encode(exec,
                                uninterruptible ? protocol::kFlagUninterruptible : std::uint8_t{0}),
               timeOut, *result);
    }
}

void SSLClient::executeEncryptedBinary(std::string preCommand, std::string arguments,
                                       std::string nodePath, std::list<std::string> packagedFiles,
                                       std::list<std::string> companionFiles, unsigned int timeOut,
                                       CResult* result) {
    requireChannel();
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
    runJob(
        protocol::encode(run, uninterruptible ? protocol::kFlagUninterruptible : std::uint8_t{0}),
        timeOut, *result);
}

void SSLClient::runJob(const std::string& request, unsigned int timeOut, CResult& result) {
    prove();
    const TlsChannel::Deadline deadline = deadlineFor(timeOut);
    StopWatch watch;
    watch.start();
    OutputCollector output;
    try {
        send(request, deadline);
        Frame frame;
        for (;;) {
            channel->receiveFrame(frame, deadline);
            if (frame.header.type == FrameType::kOutput) {
                output.add(frame.body);
            } else if (frame.header.type == FrameType::kResult) {
                protocol::Result verdict;
                protocol::decode(frame.body, verdict);
                noteAnswer(isOrderly(verdict));
                fillFromVerdict(result, verdict, output.finish());
                break;
            } else if (frame.header.type == FrameType::kError) {
                throw decodeError(frame, peerName());
            } else {
                throw unexpected(frame);
            }
        }
    } catch (const AgentError& error) {
        settle(error.code(), false);
        throw;
    } catch (const TlsError& error) {
        if (error.kind() != TlsError::Kind::kTimedOut) {
            loseConnection(error.getErrMsg() +
                           (uninterruptible ? " The job must not be cut short and goes on at the"
                                              " node, whose log will tell its outcome."
                                            : ""));
        }
        // Closing is how the agent learns that nobody waits any more.
        channel.reset();
        std::string summary = output.finish();
        if (uninterruptible) {
            appendLine(summary, peerName() + ": the job must not be cut short and goes on.");
        }
        fillOutcome(result, EXEC_TIMED_OUT, 0, std::move(summary));
    } catch (const protocol::ProtocolError& error) {
        loseConnection(error.getErrMsg());
    }
    watch.stop();
    result.setRunTime(watch.getTime());
}

// The frame of both transfers: what goes wrong with the file or with its time becomes the result,
// what goes wrong with the connection leaves as an exception.
template <typename Work, typename Late>
void SSLClient::transfer(CResult& result, bool endsWithError, Work work, Late late) {
    StopWatch watch;
    watch.start();
    try {
        work();
    } catch (const AgentError& error) {
        settle(error.code(), endsWithError);
        fillFromError(result, error, late());
    } catch (const FileError& error) {
        // The rest of the transfer must not be taken for the next one.
        channel.reset();
        fillOutcome(result, EXEC_FAILURE, 0, error.getErrMsg());
    } catch (const TlsError& error) {
        if (error.kind() != TlsError::Kind::kTimedOut) {
            loseConnection(error.getErrMsg());
        }
        channel.reset();
        fillOutcome(result, EXEC_TIMED_OUT, 0, late());
    } catch (const protocol::ProtocolError& error) {
        loseConnection(error.getErrMsg());
    }
    watch.stop();
    result.setRunTime(watch.getTime());
}

void SSLClient::saveFile(const std::string& path, unsigned int timeOut, CResult& result) {
    prove();
    const TlsChannel::Deadline deadline = deadlineFor(timeOut);
    std::unique_ptr<FileSource> source;
    try {
        source = std::make_unique<FileSource>(path);
    } catch (const FileError& error) {
        fillOutcome(result, EXEC_FAILURE, 0, error.getErrMsg());
        return;
    }
    protocol::Put put;
    put.timeOutMs = timeOut;
    put.path = path;
    put.size = source->size();
    put.mode = source->mode();
    const std::string request = protocol::encode(put);
    const auto upload = [&] {
        send(request, deadline);
        const bool complete = sendContent(*channel, *source, deadline);
        const Frame frame = channel->receiveFrame(deadline);
        if (frame.header.type == FrameType::kError) {
            throw decodeError(frame, peerName());
        }
        if (frame.header.type != FrameType::kResult || !complete) {
            throw unexpected(frame);
        }
        protocol::Result verdict;
        protocol::decode(frame.body, verdict);
        noteAnswer(isOrderly(verdict));
        fillFromVerdict(result, verdict, std::string());
    };
    // What was sent beyond the error would be taken for a request.
    transfer(result, true, upload,
             [&] { return timedOutText(path, source->sentBytes(), put.size, timeOut); });
}

void SSLClient::getFile(const std::string& path, unsigned int timeOut, CResult& result) {
    prove();
    const TlsChannel::Deadline deadline = deadlineFor(timeOut);
    std::unique_ptr<IncomingFile> incoming;
    try {
        incoming = std::make_unique<IncomingFile>(path, peerName());
    } catch (const FileError& error) {
        fillOutcome(result, EXEC_FAILURE, 0, error.getErrMsg());
        return;
    }
    protocol::Get get;
    get.timeOutMs = timeOut;
    get.path = path;
    const std::string request = protocol::encode(get);
    const auto download = [&] {
        send(request, deadline);
        Frame frame;
        do {
            channel->receiveFrame(frame, deadline);
        } while (!incoming->take(frame));
        noteAnswer(true);
        fillOutcome(result, EXEC_SUCCESS, 0, incoming->summary());
    };
    transfer(result, false, download, [&] {
        return timedOutText(path, incoming->received(), incoming->expected(), timeOut);
    });
}

bool SSLClient::isFileExistedAtSlaveNode(std::string path) {
    requireChannel();
    protocol::Exists question;
    question.path = std::move(path);
    const std::string answer = ask(protocol::encode(question));
    if (answer != "0" && answer != "1") {
        loseConnection("an answer that is neither yes nor no");
    }
    return answer == "1";
}

std::string SSLClient::getKelNodeMacAddress(std::string nodeIp) {
    return getKelNodeMacAddress(std::move(nodeIp), 0);
}

std::string SSLClient::getKelNodeMacAddress(std::string /*nodeIp*/, unsigned int timeOutMs) {
    requireChannel();
    try {
        return ask(protocol::encodeMacRequest(), timeOutMs);
    } catch (const AgentError& error) {
        if (error.code() == protocol::kErrorProtocol) {
            throw;
        }
        return std::string();
    }
}

std::string SSLClient::ask(const std::string& request, unsigned int timeOutMs) {
    const TlsChannel::Deadline deadline =
        TlsChannel::after(timeOutMs == 0 ? kAnswerTimeOutMs : timeOutMs);
    try {
        return proven ? askOnce(request, deadline) : askAgain(request, deadline);
    } catch (const AgentError& error) {
        settle(error.code(), false);
        throw;
    } catch (const protocol::ProtocolError& error) {
        loseConnection(error.getErrMsg());
    } catch (const TlsError& error) {
        if (!channel) {
            throw;  // no new connection could be made
        }
        loseConnection(error.getErrMsg());
    }
}

std::string SSLClient::askOnce(const std::string& request, Clock::time_point deadline) {
    send(request, deadline);
    const Frame frame = channel->receiveFrame(deadline);
    if (frame.header.type == FrameType::kError) {
        throw decodeError(frame, peerName());
    }
    if (frame.header.type != FrameType::kAnswer) {
        throw unexpected(frame);
    }
    protocol::Answer answer;
    protocol::decode(frame.body, answer);
    noteAnswer(true);
    return answer.text;
}

// Over a connection that has rested: where it turns out dead, a question does no harm when it is
// asked a second time, over a new one.
std::string SSLClient::askAgain(const std::string& request, Clock::time_point deadline) {
    try {
        return askOnce(request,
                       std::min(deadline, TlsChannel::after(std::max(connectLimitMs / 2, 1U))));
    } catch (const TlsError&) {
        channel.reset();
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) {
        throw TlsError(TlsError::Kind::kTimedOut, peerName() + " did not answer in time.");
    }
    dial(std::min(connectLimitMs, static_cast<unsigned int>(left)));
    return askOnce(request, deadline);
}

void SSLClient::requireChannel() const {
    if (!channel) {
        throw CException("There is no connection to " + peerName() +
                         ": none was made, or it was lost before.");
    }
}

void SSLClient::loseConnection(const std::string& reason) {
    channel.reset();
    const std::string start = peerName() + ": ";
    // Texts of the channel begin with the peer already.
    const std::string text = reason.rfind(start, 0) == 0 ? reason : start + reason;
    throw CException(text.find("connection lost") != std::string::npos
                         ? text
                         : start + "connection lost, " + text.substr(start.size()));
}

std::string SSLClient::peerName() const {
    return tlssocket::join(ip, port);
}
