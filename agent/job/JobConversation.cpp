#include "JobConversation.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <poll.h>
#include <string_view>
#include <utility>

#include "CException.h"
#include "FirmwareLock.h"
#include "PlantedFiles.h"
#include "Text.h"
#include "TlsSocket.h"

namespace {

using protocol::FrameType;
using protocol::ProtocolError;

constexpr std::size_t kOutputPieceBytes = protocol::kDataChunkBytes;
// How often the file of an uninterruptible job is looked at.
constexpr int kOutputFilePollMs = 50;
// A job that has ended leaves at most a pipe's and a frame's worth to be sent.
constexpr unsigned long kRestMs = 30000;
// After the time-out the shell does not wait much longer.
constexpr unsigned long kRestAfterTimeOutMs = 2000;

// A supervisor says at the time-out what becomes of the job; from then on it is looked after.
constexpr unsigned long kOverdueMs = 250;
// How often a conversation looks whether its turn has come, and what is left of its time-out for
// the answer where it has not.
constexpr unsigned long kTurnPollMs = 20;
constexpr std::uint32_t kAnswerMs = 1000;
constexpr unsigned long kShortSendMs = 10000;

constexpr int kSweeps = 40;
constexpr int kSweepPauseMs = 25;

long long millisSince(FrameChannel::Clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(FrameChannel::Clock::now() - start)
        .count();
}

// For poll().
int millisUntil(FrameChannel::Deadline deadline) {
    if (deadline == FrameChannel::never()) {
        return -1;
    }
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - FrameChannel::Clock::now());
    return static_cast<int>(std::clamp<long long>(left.count(), 0, 60000));
}

std::string describe(const protocol::Result& result) {
    switch (result.ending) {
        case protocol::Result::Ending::kExited:
            return "exit code " + std::to_string(result.value);
        case protocol::Result::Ending::kSignaled:
            return "ended by signal " + std::to_string(result.value);
        case protocol::Result::Ending::kTimedOut:
            return "timed out";
        case protocol::Result::Ending::kCancelled:
            break;
    }
    return "cancelled";
}

}  // namespace

JobConversation::JobConversation(FrameChannel& shellChannel, const JobSettings& jobSettings,
                                 const RunDirectory& runDirectory, RequestAudit& requestAudit)
    : channel(shellChannel),
      settings(jobSettings),
      directory(runDirectory),
      audit(requestAudit),
      section(runDirectory) {}

std::string_view JobConversation::nextOutput(Job& job, std::size_t most) {
    if (!outputFrame) {
        // Not filled with anything: most jobs write little, and what is never touched is no memory.
        outputFrame.reset(new char[protocol::kHeaderBytes + kOutputPieceBytes]);
    }
    const std::size_t count = job.readOutput(outputFrame.get() + protocol::kHeaderBytes,
                                             std::min(most, kOutputPieceBytes));
    if (count == 0) {
        return {};
    }
    const std::string header =
        protocol::encodeHeader({static_cast<std::uint32_t>(count), FrameType::kOutput, 0});
    header.copy(outputFrame.get(), header.size());
    return {outputFrame.get(), header.size() + count};
}

FrameChannel::Deadline JobConversation::turnDeadline(const JobRequest& request) {
    return request.timeOutMs == 0
               ? FrameChannel::never()
               : FrameChannel::after(request.timeOutMs -
                                     std::min(request.timeOutMs / 10, kAnswerMs));
}

bool JobConversation::awaitTurn(JobRequest& jobRequest, const std::string& label) {
    connectionLost = false;
    ending = "cancelled by its shell while it waited for its turn";
    if (section.isLost()) {
        section.leave();
        refuseTurn(
            "this conversation has had the node for too long and lost it to another: what "
            "is there now may be of another run");
        return false;
    }
    // The refusal of a second one is its supervisor's, and comes at once.
    const bool isRefused = jobRequest.uninterruptible && FirmwareLock::isTaken(directory);
    if (!jobRequest.isReadBack || isRefused) {
        return true;
    }
    const std::string owner = jobRequest.owner + ": " + label;
    const FrameChannel::Clock::time_point start = FrameChannel::Clock::now();
    const FrameChannel::Deadline deadline = turnDeadline(jobRequest);
    while (!section.tryEnter(owner)) {
        if (FrameChannel::Clock::now() >= deadline) {
            refuseTurn("the node is in use by " + section.holder() + "; waited " +
                       std::to_string(millisSince(start)) + " ms");
            return false;
        }
        checkPeer();
        if (connectionLost) {
            return false;
        }
        (void)tlssocket::wait(channel.descriptor(), POLLIN, FrameChannel::after(kTurnPollMs));
    }
    if (jobRequest.timeOutMs > 0) {
        jobRequest.timeOutMs -=
            std::min(jobRequest.timeOutMs - 1, static_cast<std::uint32_t>(millisSince(start)));
    }
    return true;
}

void JobConversation::refuseTurn(const std::string& text) {
    ending = "not started: " + text;
    sendError(protocol::kErrorRefused, text);
}

bool JobConversation::run(const JobRequest& jobRequest, const std::string& label) {
    request = &jobRequest;
    outputEnded = false;
    connectionLost = false;
    wasEndedByForce = false;
    // For a shell that breaks the protocol.
    ending = request->uninterruptible ? "goes on without its shell" : "cancelled";
    converse(label);
    return !connectionLost;
}

void JobConversation::converse(const std::string& label) {
    try {
        plantedfiles::remove(request->tools.isEmpty() ? "" : request->commandLine,
                             [this](const std::string& text) { settings.log->warning(text); });
        Job job(settings, *request);
        // The supervisor ends the record from here on: it outlives this process.
        audit.handOver();
        if (request->uninterruptible) {
            settings.log->info(request->owner + ": " + label + ": begins");
        }
        converseAbout(job);
    } catch (const ProtocolError&) {
        throw;
    } catch (const ChannelError& lost) {
        connectionLost = true;
        ending = (request->uninterruptible ? "goes on without its shell: " : "cancelled: ") +
                 Text::printable(lost.getErrMsg());
    } catch (const CException& fault) {
        ending = "not started: " + Text::printable(fault.getErrMsg());
        sendError(protocol::kErrorNotStarted, fault.getErrMsg());
    }
}

void JobConversation::converseAbout(Job& job) {
    overdueAt = request->timeOutMs == 0 || request->uninterruptible
                    ? FrameChannel::never()
                    : FrameChannel::after(request->timeOutMs + kOverdueMs);
    try {
        while (!pump(job)) {
        }
    } catch (const CException&) {
        endIfStopped(job);
        throw;
    }
    if (connectionLost) {
        endIfStopped(job);
    }
}

bool JobConversation::endIfStopped(Job& job) {
    // One that is only late, as on a busy machine, ends the job by itself and in order.
    if (request->uninterruptible || !job.isSupervisorStopped()) {
        return false;
    }
    settings.log->error(request->owner +
                        ": the supervisor of a job has been stopped; the job is ended without it");
    job.endByForce();
    return true;
}

bool JobConversation::pump(Job& job) {
    checkPeer();
    if (connectionLost) {
        ending = request->uninterruptible ? "goes on without its shell" : "cancelled by its shell";
        return true;
    }
    if (channel.hasQueued()) {
        channel.flush();
    }
    forwardOutput(job);
    if (takeReport(job)) {
        return true;
    }
    if (FrameChannel::Clock::now() >= overdueAt) {
        overdueAt = FrameChannel::after(kOverdueMs);
        wasEndedByForce = endIfStopped(job) || wasEndedByForce;
    }
    wait(job);
    return false;
}

void JobConversation::checkPeer() {
    switch (channel.lookAtPeer()) {
        case FrameChannel::Peer::kSilent:
            return;
        case FrameChannel::Peer::kGone:
            connectionLost = true;
            return;
        case FrameChannel::Peer::kSpeaking:
            throw ProtocolError("the shell spoke while its job was running");
    }
}

void JobConversation::forwardOutput(Job& job) {
    while (!channel.hasQueued() && !outputEnded) {
        const std::string_view frame = nextOutput(job, kOutputPieceBytes);
        if (frame.empty() || !channel.sendOrQueue(frame)) {
            return;
        }
    }
}

void JobConversation::wait(const Job& job) {
    const bool queued = channel.hasQueued();
    pollfd watched[3] = {
        {channel.descriptor(), static_cast<short>(POLLIN | POLLRDHUP | (queued ? POLLOUT : 0)), 0},
        {job.controlDescriptor(), POLLIN, 0},
        {queued || outputEnded ? -1 : job.outputPipe(), POLLIN, 0}};
    const bool looksAtFile = job.outputPipe() < 0 && !queued;
    if (::poll(watched, 3, looksAtFile ? kOutputFilePollMs : millisUntil(overdueAt)) <= 0) {
        return;
    }
    // Everybody has closed the pipe while the shell goes on: nothing more comes from there.
    if ((watched[2].revents & POLLHUP) != 0 && job.unreadOutput() == 0) {
        outputEnded = true;
    }
}

bool JobConversation::takeReport(Job& job) {
    const JobReport report = job.nextReport();
    switch (report.kind) {
        case JobReport::Kind::kNone:
        case JobReport::Kind::kStarted:
            return false;
        case JobReport::Kind::kNotStarted:
            ending = "not started: " + Text::printable(report.text);
            sendError(report.errorCode, report.text);
            return true;
        case JobReport::Kind::kEnded: {
            const FrameChannel::Deadline deadline = FrameChannel::after(kRestMs);
            sendRest(job, deadline);
            endWith(report.result, deadline);
            return true;
        }
        case JobReport::Kind::kTimedOut: {
            const FrameChannel::Deadline deadline = FrameChannel::after(kRestAfterTimeOutMs);
            sendRest(job, deadline);
            endWith(report.result, deadline);
            if (request->uninterruptible) {
                ending += ", goes on";
            }
            return true;
        }
        case JobReport::Kind::kLost:
            break;
    }
    answerLost();
    return true;
}

void JobConversation::answerLost() {
    audit.takeBack();
    protocol::Result lost;
    lost.ending = wasEndedByForce ? protocol::Result::Ending::kTimedOut
                                  : protocol::Result::Ending::kCancelled;
    lost.text = request->uninterruptible
                    ? "the job's supervisor on the node was killed; the job goes on there, see " +
                          settings.runPath() + "firmware.log"
                    : "the job's supervisor on the node was killed, and the job with it";
    // What was killed takes a moment to be gone, and the listener may be sweeping too.
    for (int i = 0; i < kSweeps && directory.sweep([this](const std::string& text) {
             settings.log->warning(text);
         }) > 0;
         ++i) {
        ::poll(nullptr, 0, kSweepPauseMs);
    }
    endWith(lost, FrameChannel::after(kRestMs));
}

void JobConversation::sendRest(Job& job, FrameChannel::Deadline deadline) {
    // Only what is there now: what was left running in the background may go on writing
    // for ever.
    std::size_t left = job.unreadOutput();
    while (left > 0) {
        const std::string_view frame = nextOutput(job, left);
        if (frame.empty()) {
            return;
        }
        left -= frame.size() - protocol::kHeaderBytes;
        channel.sendFrame(frame, deadline);
    }
}

void JobConversation::sendError(std::uint16_t code, const std::string& text) {
    channel.sendFrame(protocol::encode(protocol::Error{code, text}),
                      FrameChannel::after(kShortSendMs));
}

void JobConversation::endWith(const protocol::Result& result, FrameChannel::Deadline deadline) {
    ending = describe(result);
    channel.sendFrame(protocol::encode(result), deadline);
}
