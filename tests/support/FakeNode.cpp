#include "FakeNode.h"

#include <stdexcept>

#include "FileDigest.h"
#include "TlsChannel.h"

FakeNodeAgent::Script FakeNode::script() {
    return [this](TlsChannel& channel) {
        note(FakeNodeAgent::greet(channel));
        for (;;) {
            answer(channel, channel.receiveFrame(FakeNodeAgent::soon()));
        }
    };
}

void FakeNode::setFile(const std::string& path, const std::string& content) {
    const std::lock_guard<std::mutex> lock(mutex);
    files[path] = content;
}

std::string FakeNode::file(const std::string& path) const {
    const std::lock_guard<std::mutex> lock(mutex);
    const auto found = files.find(path);
    return found == files.end() ? std::string() : found->second;
}

std::vector<std::string> FakeNode::commands() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return commandLines;
}

std::vector<protocol::RunPackaged> FakeNode::packagedRuns() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return packaged;
}

std::vector<std::uint32_t> FakeNode::numbers() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return commandNumbers;
}

bool FakeNode::holds(const std::string& path) const {
    const std::lock_guard<std::mutex> lock(mutex);
    return files.count(path) != 0;
}

void FakeNode::answer(TlsChannel& channel, const protocol::Frame& frame) {
    using protocol::FrameType;
    switch (frame.header.type) {
        case FrameType::kShellHello: {
            protocol::ShellHello hello;
            protocol::decode(frame.body, hello);
            return note(hello);
        }
        case FrameType::kExec:
            return runCommand(channel, frame);
        case FrameType::kRunPackaged:
            return runPackaged(channel, frame);
        case FrameType::kPut:
            return take(channel, frame);
        case FrameType::kGet:
            return give(channel, frame);
        case FrameType::kExists: {
            protocol::Exists question;
            protocol::decode(frame.body, question);
            return say(channel, holds(question.path) ? "1" : "0");
        }
        case FrameType::kMac:
            ++macQuestionCount;
            return say(channel, macAddress);
        default:
            throw std::runtime_error("not a request");
    }
}

void FakeNode::note(const protocol::ShellHello& hello) {
    ++greetingCount;
    sequence = hello.sequence;
}

void FakeNode::say(TlsChannel& channel, const std::string& text) {
    protocol::Answer body;
    body.text = text;
    FakeNodeAgent::send(channel, protocol::encode(body));
}

void FakeNode::reply(TlsChannel& channel, const Reply& reply) {
    if (!reply.output.empty()) {
        FakeNodeAgent::send(channel,
                            FakeNodeAgent::frame(protocol::FrameType::kOutput, reply.output));
    }
    FakeNodeAgent::result(channel, reply.exitCode);
}

void FakeNode::runCommand(TlsChannel& channel, const protocol::Frame& frame) {
    protocol::Exec exec;
    protocol::decode(frame.body, exec);
    flags = frame.header.flags;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        commandLines.push_back(exec.commandLine);
        commandNumbers.push_back(sequence);
    }
    reply(channel, onCommand(exec.commandLine));
}

void FakeNode::runPackaged(TlsChannel& channel, const protocol::Frame& frame) {
    protocol::RunPackaged run;
    protocol::decode(frame.body, run);
    flags = frame.header.flags;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        packaged.push_back(run);
    }
    reply(channel, onPackaged(run));
}

void FakeNode::take(TlsChannel& channel, const protocol::Frame& frame) {
    protocol::Put put;
    protocol::decode(frame.body, put);
    std::string content;
    FileDigest digest;
    for (;;) {
        const protocol::Frame piece = channel.receiveFrame(FakeNodeAgent::soon());
        if (piece.header.type == protocol::FrameType::kEnd) {
            protocol::End end;
            protocol::decode(piece.body, end);
            if (content.size() != put.size || digest.finish() != end.digest) {
                return FakeNodeAgent::error(channel, protocol::kErrorDigest, "damaged");
            }
            setFile(put.path, content);
            return FakeNodeAgent::result(channel, 0, "stored " + put.path);
        }
        content += piece.body;
        digest.update(piece.body.data(), piece.body.size());
    }
}

void FakeNode::give(TlsChannel& channel, const protocol::Frame& frame) {
    protocol::Get get;
    protocol::decode(frame.body, get);
    if (!holds(get.path)) {
        return FakeNodeAgent::error(channel, protocol::kErrorFile,
                                    "\"" + get.path + "\" does not exist.");
    }
    const std::string content = file(get.path);
    protocol::FileInfo info;
    info.size = content.size();
    info.mode = 0640;
    FakeNodeAgent::send(channel, protocol::encode(info));
    FileDigest digest;
    for (std::size_t at = 0; at < content.size(); at += protocol::kDataChunkBytes) {
        const std::string piece = content.substr(at, protocol::kDataChunkBytes);
        digest.update(piece.data(), piece.size());
        FakeNodeAgent::send(channel, FakeNodeAgent::frame(protocol::FrameType::kData, piece));
    }
    protocol::End end;
    end.digest = digest.finish();
    FakeNodeAgent::send(channel, protocol::encode(end));
}
