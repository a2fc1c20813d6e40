#include "FileConversation.h"

#include <algorithm>
#include <chrono>

#include "CException.h"
#include "FileDigest.h"
#include "FileSource.h"
#include "FileTransfer.h"
#include "Text.h"

namespace {

using protocol::FrameType;
using protocol::ProtocolError;

constexpr unsigned long kLastWordsMs = 1000;
constexpr unsigned long kShortSendMs = 10000;

FileConversation::Outcome failure(std::uint16_t code, const std::string& error, bool goesOn) {
    FileConversation::Outcome outcome;
    outcome.text = Text::printable(error);
    outcome.code = code;
    outcome.error = error;
    outcome.goesOn = goesOn;
    return outcome;
}

FileConversation::Outcome lost(const ChannelError& fault) {
    FileConversation::Outcome outcome;
    outcome.text = Text::printable(fault.getErrMsg());
    outcome.goesOn = false;
    return outcome;
}

}  // namespace

FileConversation::FileConversation(FrameChannel& shellChannel, const MasterRights& masterRights,
                                   const RunDirectory& runDirectory, unsigned long uploadSilenceMs)
    : channel(shellChannel),
      rights(masterRights),
      directory(runDirectory),
      silenceMs(uploadSilenceMs) {}

// After a failure the rest of the file is on its way; the shell closes when it has read the reason.
FileConversation::Outcome FileConversation::receive(const protocol::Put& put) {
    try {
        Outcome outcome;
        outcome.text = Text::printable(receiveAll(put));
        return outcome;
    } catch (const ProtocolError&) {
        throw;
    } catch (const ChannelError& fault) {
        return lost(fault);
    } catch (const FileReceiver::Damaged& damaged) {
        return failure(protocol::kErrorDigest, damaged.getErrMsg(), false);
    } catch (const CException& failed) {
        return failure(protocol::kErrorFile, failed.getErrMsg(), false);
    }
}

std::string FileConversation::receiveAll(const protocol::Put& put) {
    const FrameChannel::Deadline deadline =
        put.timeOutMs > 0 ? FrameChannel::after(put.timeOutMs) : FrameChannel::never();
    const FrameChannel::Clock::time_point start = FrameChannel::Clock::now();
    FileReceiver receiver(put, directory);
    protocol::Frame frame;
    for (;;) {
        if (!receiveUntil(frame, deadline)) {
            const std::string text = "\"" + put.path + "\" was not saved in time, " +
                                     std::to_string(receiver.receivedBytes()) + " of " +
                                     std::to_string(put.size) + " bytes had arrived.";
            sendTimedOut(text);
            throw ChannelError(ChannelError::Kind::kTimedOut, text);
        }
        if (rights.judge(SessionState::kUpload, frame.header) == Verdict::kRefused) {
            throw CException(rights.refusalOf("PUT"));
        }
        if (frame.header.type == FrameType::kEnd) {
            protocol::End end;
            protocol::decode(frame.body, end);
            protocol::Result result;
            result.text = receiver.finish(end.digest);
            result.elapsedMs =
                static_cast<std::uint32_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                               FrameChannel::Clock::now() - start)
                                               .count());
            channel.sendFrame(protocol::encode(result), FrameChannel::after(kShortSendMs));
            return result.text;
        }
        receiver.consume(frame.body);
    }
}

bool FileConversation::receiveUntil(protocol::Frame& frame, FrameChannel::Deadline deadline) {
    try {
        channel.receiveFrame(frame, std::min(deadline, FrameChannel::after(silenceMs)));
        return true;
    } catch (const ChannelError& lost) {
        if (lost.kind() != ChannelError::Kind::kTimedOut) {
            throw;
        }
        return false;
    }
}

FileConversation::Outcome FileConversation::send(const protocol::Get& get) {
    try {
        Outcome outcome;
        outcome.text = Text::printable(sendAll(get));
        return outcome;
    } catch (const ChannelError& fault) {
        return lost(fault);
    } catch (const PathPrefix::Outside& outside) {
        // The certificate's name in it is escaped already.
        const std::string text = rights.refusalOf("GET \"" + Text::printable(get.path) + "\"") +
                                 ": " + outside.getErrMsg();
        Outcome refused = failure(protocol::kErrorRefused, text, true);
        refused.text = "refused: " + text;
        return refused;
    } catch (const CException& failed) {
        return failure(protocol::kErrorFile, failed.getErrMsg(), true);
    }
}

std::string FileConversation::sendAll(const protocol::Get& get) {
    const FrameChannel::Deadline deadline =
        get.timeOutMs > 0 ? FrameChannel::after(get.timeOutMs) : FrameChannel::never();
    // A little more than the time given, so that the reason still gets through.
    const FrameChannel::Deadline hardDeadline =
        get.timeOutMs > 0 ? deadline + std::chrono::milliseconds(kLastWordsMs) : deadline;
    FileSource source = rights.openSource(get.path);
    channel.sendFrame(protocol::encode(protocol::FileInfo{source.size(), source.mode()}),
                      hardDeadline);
    std::string piece;
    while (source.nextFrame(piece)) {
        if (FrameChannel::Clock::now() >= deadline) {
            std::string text = "\"" + get.path + "\" was not sent in time, " +
                               std::to_string(source.sentBytes()) + " of " +
                               std::to_string(source.size()) + " bytes were read.";
            sendTimedOut(text);
            return text;
        }
        channel.sendFrame(piece, hardDeadline);
    }
    const std::string digest = source.finish();
    channel.sendFrame(protocol::encode(protocol::End{digest}), hardDeadline);
    return "sent, " + std::to_string(source.size()) + " bytes, SHA-256 " +
           FileDigest::shortHex(digest);
}

void FileConversation::sendTimedOut(const std::string& text) {
    channel.sendFrame(protocol::encode(protocol::Error{protocol::kErrorTimedOut, text}),
                      FrameChannel::after(kShortSendMs));
}
