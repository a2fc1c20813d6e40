#pragma once

#include <ctime>
#include <memory>
#include <string>

#include "AgentConfig.h"
#include "Authorization.h"
#include "EventLog.h"
#include "FileConversation.h"
#include "FrameChannel.h"
#include "JobConversation.h"
#include "JobRequest.h"
#include "MasterRights.h"
#include "Protocol.h"
#include "RequestAudit.h"
#include "RunDirectory.h"
#include "SessionLine.h"
#include "TlsContext.h"
#include "UniqueFd.h"

// One connection of a shell, from the handshake to its end, in a process of its own, with another
// one without privileges between it and the network (NetworkSide). Requests are
// served one after the other; each leaves one log line. A shell that breaks the rules is told so
// and disconnected; nothing it sends can harm more than this process.
class Session {
public:
    static constexpr unsigned long kHandshakeMs = 5000;
    struct Limits {
        // Milliseconds: accepting and the handshake; the shell's greeting after it; the wait for a
        // request; a silence in the middle of an upload; a silence that ends the turn of a
        // conversation (RunSection).
        unsigned long handshakeMs = kHandshakeMs;
        unsigned long greetingMs = 2000;
        unsigned long idleMs = 120000;
        unsigned long uploadSilenceMs = 60000;
        unsigned long turnRestMs = 2000;
    };

    // toListener: for SessionLine.
    // accepted: when the connection was; the time for the handshake counts from there.
    // network: the socket to the process that faces the network and serves the connection.
    // refusal: what the shell is told in place of being served; mostly empty.
    Session(UniqueFd connection, std::shared_ptr<TlsContext> tlsContext,
            const AgentConfig& agentConfig, const Authorization& rules, const JobSettings& settings,
            const EventLog& agentLog, UniqueFd network, UniqueFd toListener,
            FrameChannel::Clock::time_point accepted, std::string refusal);
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Serves until the connection ends. Throws nothing.
    void run() noexcept;

    // SIGTERM ends a session at once, unless it serves an uninterruptible job: then afterwards,
    // when the shell has had the time to read the outcome back.
    static void installSignals();

private:
    void serve();
    void serveRequests();
    bool greet();
    // Tells the shell why it is not served, and ends the conversation.
    void turnAway(const std::string& reason);
    // Why it is not, although it has authenticated and greeted; mostly empty.
    std::string reasonToTurnAway();
    void takeGreeting(const protocol::Frame& frame);
    // Tells the shell that it may not; false when the session is to end.
    bool refuse(const protocol::FrameHeader& header);
    // text: escaped.
    void reportRefusal(const std::string& request, const std::string& text);
    bool refusePath(const std::string& request, const std::string& path);
    // False when the session is to end.
    bool serveRequest(const protocol::Frame& frame);
    bool serveAllowed(const protocol::Frame& frame);
    bool serveExec(const protocol::Frame& frame);
    bool serveRunPackaged(const protocol::Frame& frame);
    bool servePut(const protocol::Frame& frame);
    bool serveGet(const protocol::Frame& frame);
    bool endFile(const std::string& what, const FileConversation::Outcome& outcome);
    bool serveExists(const protocol::Frame& frame);
    bool serveMac(const protocol::Frame& frame);

    bool runJob(JobRequest& request, const char* what);
    // While set, SIGTERM waits until the request is done.
    void setUninterruptible(bool on);

    FrameChannel::Deadline requestDeadline() const;
    // False when the shell has gone, or nothing came in time.
    bool awaitRequest();

    void sendError(std::uint16_t code, const std::string& text);
    void sendAnswer(const std::string& text);
    void logRequest(const std::string& what, const std::string& result);
    std::string who() const;

    UniqueFd socket;
    std::shared_ptr<TlsContext> context;
    const AgentConfig& config;
    const Authorization& authorization;
    const JobSettings& jobSettings;
    const EventLog& log;
    UniqueFd networkSocket;
    SessionLine line;
    const FrameChannel::Clock::time_point acceptedAt;
    const std::string turnedAway;
    const Limits limits;
    RunDirectory runDirectory;
    std::unique_ptr<FrameChannel> channel;
    std::string ownIp;
    std::string peerIp;
    MasterRights rights;
    std::string peer;            // certificate name and address, escaped
    std::string user;            // who runs the shell there, and the command's number, escaped
    std::time_t validUntil = 0;  // of the master's certificates
    bool wasAsked = false;
    RequestAudit audit;
    // Once the channel is open.
    std::unique_ptr<FileConversation> files;
    std::unique_ptr<JobConversation> jobs;
};
