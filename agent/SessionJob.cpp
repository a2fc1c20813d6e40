#include <algorithm>
#include <cerrno>
#include <csignal>
#include <poll.h>
#include <string_view>
#include <utility>

#include "CException.h"
#include "SecretMask.h"
#include "Session.h"
#include "Text.h"

// The part of a session that runs jobs.

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

constexpr int kSweeps = 40;
constexpr int kSweepPauseMs = 25;

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

std::string_view Session::nextOutput(Job& job, std::size_t most) {
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

bool Session::runJob(JobRequest& request, const char* what) {
    request.owner = who();
    request.audit = audit;
    outputEnded = false;
    connectionLost = false;
    outcome = "cancelled";
    setUninterruptible(request.uninterruptible);
    const std::string label = std::string(what) + (uninterruptible ? " (uninterruptible) " : " ") +
                              "\"" + Text::printable(secretmask::mask(request.commandLine)) + "\"";
    try {
        converse(request, label);
    } catch (const ProtocolError&) {
        logRequest(label, uninterruptible ? "goes on without its shell" : "cancelled");
        setUninterruptible(false);
        throw;
    }
    logRequest(label, outcome);
    setUninterruptible(false);
    return !connectionLost;
}

void Session::converse(const JobRequest& request, const std::string& label) {
    try {
        Job job(jobSettings, request);
        // The supervisor ends the record from here on: it outlives this process.
        auditOpen = false;
        if (uninterruptible) {
            log.info(who() + ": " + label + ": begins");
        }
        while (!pumpJob(job)) {
        }
    } catch (const ProtocolError&) {
        throw;
    } catch (const ChannelError& lost) {
        connectionLost = true;
        outcome = (uninterruptible ? "goes on without its shell: " : "cancelled: ") +
                  Text::printable(lost.getErrMsg());
    } catch (const CException& fault) {
        outcome = "not started: " + Text::printable(fault.getErrMsg());
        sendError(protocol::kErrorNotStarted, fault.getErrMsg());
    }
}

bool Session::pumpJob(Job& job) {
    checkPeer();
    if (connectionLost) {
        outcome = uninterruptible ? "goes on without its shell" : "cancelled by its shell";
        return true;
    }
    if (channel->hasQueued()) {
        channel->flush();
    }
    forwardOutput(job);
    if (takeReport(job)) {
        return true;
    }
    waitForJob(job);
    return false;
}

void Session::checkPeer() {
    switch (channel->lookAtPeer()) {
        case FrameChannel::Peer::kSilent:
            return;
        case FrameChannel::Peer::kGone:
            connectionLost = true;
            return;
        case FrameChannel::Peer::kSpeaking:
            throw ProtocolError("the shell spoke while its job was running");
    }
}

void Session::forwardOutput(Job& job) {
    while (!channel->hasQueued() && !outputEnded) {
        const std::string_view frame = nextOutput(job, kOutputPieceBytes);
        if (frame.empty() || !channel->sendOrQueue(frame)) {
            return;
        }
    }
}

void Session::waitForJob(const Job& job) {
    const bool queued = channel->hasQueued();
    pollfd watched[3] = {
        {channel->descriptor(), static_cast<short>(POLLIN | POLLRDHUP | (queued ? POLLOUT : 0)), 0},
        {job.controlDescriptor(), POLLIN, 0},
        {queued || outputEnded ? -1 : job.outputPipe(), POLLIN, 0}};
    const bool looksAtFile = job.outputPipe() < 0 && !queued;
    if (::poll(watched, 3, looksAtFile ? kOutputFilePollMs : -1) <= 0) {
        return;
    }
    // Everybody has closed the pipe while the shell goes on: nothing more comes from there.
    if ((watched[2].revents & POLLHUP) != 0 && job.unreadOutput() == 0) {
        outputEnded = true;
    }
}

bool Session::takeReport(Job& job) {
    const JobReport report = job.nextReport();
    switch (report.kind) {
        case JobReport::Kind::kNone:
        case JobReport::Kind::kStarted:
            return false;
        case JobReport::Kind::kNotStarted:
            outcome = "not started: " + Text::printable(report.text);
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
            if (uninterruptible) {
                outcome += ", goes on";
            }
            return true;
        }
        case JobReport::Kind::kLost:
            break;
    }
    auditOpen = true;
    protocol::Result lost;
    lost.ending = protocol::Result::Ending::kCancelled;
    lost.text = uninterruptible
                    ? "the job's supervisor on the node was killed; the job goes on there, see " +
                          jobSettings.runPath() + "firmware.log"
                    : "the job's supervisor on the node was killed, and the job with it";
    // What was killed takes a moment to be gone, and the listener may be sweeping too.
    for (int i = 0; i < kSweeps &&
                    runDirectory.sweep([this](const std::string& text) { log.warning(text); }) > 0;
         ++i) {
        ::poll(nullptr, 0, kSweepPauseMs);
    }
    endWith(lost, FrameChannel::after(kRestMs));
    return true;
}

void Session::sendRest(Job& job, FrameChannel::Deadline deadline) {
    // Only what is there now: what was left running in the background may go on writing
    // for ever.
    std::size_t left = job.unreadOutput();
    while (left > 0) {
        const std::string_view frame = nextOutput(job, left);
        if (frame.empty()) {
            return;
        }
        left -= frame.size() - protocol::kHeaderBytes;
        channel->sendFrame(frame, deadline);
    }
}

void Session::endWith(const protocol::Result& result, FrameChannel::Deadline deadline) {
    outcome = describe(result);
    channel->sendFrame(protocol::encode(result), deadline);
}
