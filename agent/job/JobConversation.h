#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "FrameChannel.h"
#include "Job.h"
#include "JobRequest.h"
#include "RequestAudit.h"
#include "RunDirectory.h"
#include "RunSection.h"

// The part of a session's conversation that belongs to a job: from the request that was accepted to
// the result that was sent. Jobs run one after the other; one object serves all of a session.
class JobConversation {
public:
    // All stay the caller's. The directory is the one of the settings.
    JobConversation(FrameChannel& shellChannel, const JobSettings& jobSettings,
                    const RunDirectory& runDirectory, RequestAudit& requestAudit);
    JobConversation(const JobConversation&) = delete;
    JobConversation& operator=(const JobConversation&) = delete;

    // Waits for the turn of a job that is read back, which takes from its time-out. False when it
    // is not to run: the shell has been told who has the node, or is gone; outcome() says which.
    // Throws ProtocolError for a shell that speaks meanwhile.
    bool awaitTurn(JobRequest& request, const std::string& label);
    // The turn of this conversation, which lasts until it is over or gives it up.
    bool hasTurn() const { return section.isHeld(); }
    void endTurn() { section.leave(); }

    // Runs the job, sends what it writes, and answers the request. label: the request in the log.
    // Returns false when the connection is lost. Throws ProtocolError for a shell that speaks
    // meanwhile; the job is then left to its supervisor.
    bool run(const JobRequest& request, const std::string& label);

    bool isConnectionLost() const { return connectionLost; }
    // How the last one ended, for the log.
    const std::string& outcome() const { return ending; }

private:
    // Milliseconds that it may wait for its turn; the rest of its time is for the answer.
    static FrameChannel::Deadline turnDeadline(const JobRequest& request);
    void refuseTurn(const std::string& text);
    void converse(const std::string& label);
    void converseAbout(Job& job);
    // A job must not outlive its time-out, or its shell, because its supervisor was stopped. True
    // when it was, and the job has been ended.
    bool endIfStopped(Job& job);
    // One turn of the event loop; true when the job is over for this session.
    bool pump(Job& job);
    void wait(const Job& job);
    void checkPeer();
    void forwardOutput(Job& job);
    // What the job has written and nobody has read, as a frame that is good until the next call;
    // empty when there is nothing at the moment.
    std::string_view nextOutput(Job& job, std::size_t most);
    bool takeReport(Job& job);
    void answerLost();
    void sendRest(Job& job, FrameChannel::Deadline deadline);
    void sendError(std::uint16_t code, const std::string& text);
    void endWith(const protocol::Result& result, FrameChannel::Deadline deadline);

    FrameChannel& channel;
    const JobSettings& settings;
    const RunDirectory& directory;
    RequestAudit& audit;
    RunSection section;
    const JobRequest* request = nullptr;  // while it runs
    bool outputEnded = false;
    bool connectionLost = false;
    bool wasEndedByForce = false;
    FrameChannel::Deadline overdueAt{};   // when the supervisor has missed the time-out
    std::unique_ptr<char[]> outputFrame;  // used again for every piece of output
    std::string ending;
};
