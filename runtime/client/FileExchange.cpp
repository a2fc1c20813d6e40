#include "FileExchange.h"

#include <cstdint>
#include <fstream>
#include <memory>
#include <sys/stat.h>

#include "AgentLink.h"
#include "Dialer.h"
#include "FileReplacement.h"
#include "FileSource.h"
#include "NodeCall.h"
#include "NodeResult.h"
#include "Protocol.h"
#include "StopWatch.h"

namespace {

using protocol::Frame;
using protocol::FrameType;

std::string timedOutText(const std::string& path, std::uint64_t done, std::uint64_t total,
                         unsigned int timeOut) {
    return "\"" + path + "\": " + std::to_string(done) + " of " + std::to_string(total) +
           " bytes were copied when the time-out of " + std::to_string(timeOut) +
           " ms ran out; nothing was replaced. \"-t\" gives it more time.";
}

// What this process takes away from the mode of a new file. umask() itself would have to change it
// to tell it, for all threads.
std::uint32_t fileModeMask() {
    std::ifstream status("/proc/self/status");
    for (std::string key; status >> key;) {
        if (key == "Umask:") {
            std::uint32_t mask = 0;
            status >> std::oct >> mask;
            return mask;
        }
    }
    return S_IRWXG | S_IRWXO;
}

// Receives one file; the connection's faults leave it as exceptions.
class IncomingFile {
public:
    IncomingFile(const std::string& path, const std::string& peer)
        : target(path), filePath(path), peerName(peer) {}

    std::uint64_t received() const { return target.receivedBytes(); }
    std::uint64_t expected() const { return info.size; }

    // Takes one frame of the answer to GET, and the memory of its body; true after the last.
    bool take(Frame& frame) {
        switch (frame.header.type) {
            case FrameType::kFileInfo:
                if (started) {
                    throw unexpectedFrame(frame);
                }
                protocol::decode(frame.body, info);
                started = true;
                target.requireRoomFor(info.size);
                target.open(info.size);
                return false;
            case FrameType::kData:
                if (!started || frame.body.size() > info.size - target.receivedBytes()) {
                    throw unexpectedFrame(frame);
                }
                target.consume(frame.body);
                return false;
            case FrameType::kEnd:
                if (!started) {
                    throw unexpectedFrame(frame);
                }
                finish(frame);
                return true;
            default:
                throw unexpectedFrame(frame);
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
        target.commit(info.mode & 0777 & ~fileModeMask());
    }

    FileReplacement target;
    std::string filePath;
    std::string peerName;
    protocol::FileInfo info;
    std::string digest;
    bool started = false;
};

// Sends all of the file. False as soon as the agent answers before its end.
bool sendContent(AgentLink& link, FileSource& source, AgentLink::Deadline deadline) {
    std::string frame;
    while (source.nextFrame(frame)) {
        if (!link.sendUnlessAnswered(frame, deadline)) {
            return false;
        }
    }
    protocol::End end;
    end.digest = source.finish();
    return link.sendUnlessAnswered(protocol::encode(end), deadline);
}

// The frame of both directions: what goes wrong with the file or with its time becomes the result,
// what goes wrong with the connection leaves as an exception.
//   endsWithError  whether the agent's ERROR makes the connection useless
//   late           gives the text for a time-out
template <typename Work, typename Late>
void transfer(AgentLink& link, CResult& result, bool endsWithError, Work work, Late late) {
    StopWatch watch;
    watch.start();
    try {
        work();
    } catch (const AgentError& error) {
        link.settle(error, endsWithError);
        if (error.code() == protocol::kErrorTimedOut) {
            noderesult::fill(result, EXEC_TIMED_OUT, 0, late());
        } else {
            noderesult::fill(result, EXEC_FAILURE, 0, error.getErrMsg());
        }
    } catch (const FileError& error) {
        // The rest of the transfer must not be taken for the next one.
        link.drop();
        noderesult::fill(result, EXEC_FAILURE, 0, error.getErrMsg());
    } catch (const ChannelError& error) {
        if (error.kind() != ChannelError::Kind::kTimedOut) {
            link.lose(error);
        }
        link.drop();
        noderesult::fill(result, EXEC_TIMED_OUT, 0, late());
    } catch (const protocol::ProtocolError& error) {
        link.lose(error.getErrMsg());
    }
    watch.stop();
    result.setRunTime(watch.getTime());
}

// Opens one end of the transfer here; null when that is not possible, which the result then tells.
template <typename End, typename... Arguments>
std::unique_ptr<End> openEnd(CResult& result, const Arguments&... arguments) {
    try {
        return std::make_unique<End>(arguments...);
    } catch (const FileError& error) {
        noderesult::fill(result, EXEC_FAILURE, 0, error.getErrMsg());
        return nullptr;
    }
}

}  // namespace

namespace fileexchange {

void save(AgentLink& link, const std::string& path, unsigned int timeOutMs, CResult& result) {
    link.prepareForWork();
    const AgentLink::Deadline deadline = link.deadlineFor(timeOutMs);
    link.currentCall().enter(NodeCall::Phase::kCopying);
    const auto source = openEnd<FileSource>(result, path, &link.connectionsOfShell().digests());
    if (!source) {
        return;
    }
    protocol::Put put;
    put.timeOutMs = timeOutMs;
    put.path = path;
    put.size = source->size();
    put.mode = source->mode();
    const std::string request = protocol::encode(put);
    const auto upload = [&] {
        link.send(request, deadline);
        const bool complete = sendContent(link, *source, deadline);
        Frame frame;
        link.receive(frame, deadline);
        if (frame.header.type != FrameType::kResult || !complete) {
            throw unexpectedFrame(frame);
        }
        protocol::Result verdict;
        protocol::decode(frame.body, verdict);
        link.noteAnswer(noderesult::isOrderly(verdict));
        noderesult::fill(result, verdict, std::string());
    };
    // What was sent beyond the error would be taken for a request.
    transfer(link, result, true, upload,
             [&] { return timedOutText(path, source->sentBytes(), put.size, timeOutMs); });
}

void get(AgentLink& link, const std::string& path, unsigned int timeOutMs, CResult& result) {
    link.prepareForWork();
    const AgentLink::Deadline deadline = link.deadlineFor(timeOutMs);
    link.currentCall().enter(NodeCall::Phase::kCopying);
    const auto incoming = openEnd<IncomingFile>(result, path, link.peerName());
    if (!incoming) {
        return;
    }
    protocol::Get get;
    get.timeOutMs = timeOutMs;
    get.path = path;
    const std::string request = protocol::encode(get);
    const auto download = [&] {
        link.send(request, deadline);
        Frame frame;
        do {
            link.receive(frame, deadline);
        } while (!incoming->take(frame));
        link.noteAnswer(true);
        noderesult::fill(result, EXEC_SUCCESS, 0, incoming->summary());
    };
    transfer(link, result, false, download, [&] {
        return timedOutText(path, incoming->received(), incoming->expected(), timeOutMs);
    });
}

}  // namespace fileexchange
