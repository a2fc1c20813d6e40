// Frames in both directions: bytes as either end receives them. Whatever the bytes are, decoding
// throws ProtocolError or gives a frame; what was decoded must encode to the very same bytes, so
// that no two readings of one frame exist.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "Protocol.h"
#include "Require.h"

namespace {

using namespace protocol;

template <typename Body>
std::string encodeAgain(const Body& body, std::uint8_t /*flags*/) {
    return encode(body);
}
std::string encodeAgain(const Exec& body, std::uint8_t flags) {
    return encode(body, flags);
}
std::string encodeAgain(const RunPackaged& body, std::uint8_t flags) {
    return encode(body, flags);
}

template <typename Body>
void check(const FrameHeader& header, const std::string& bytes) {
    Body body;
    decode(bytes, body);
    require(encodeAgain(body, header.flags) == encodeHeader(header) + bytes);
}

void checkBody(const FrameHeader& header, const std::string& bytes) {
    switch (header.type) {
        case FrameType::kAgentHello: {
            check<AgentHello>(header, bytes);
            AgentHello hello;
            decode(bytes, hello);
            const std::uint16_t version = commonVersion(hello);
            require(version == 0 ||
                    (version >= hello.lowestVersion && version <= hello.highestVersion));
            return;
        }
        case FrameType::kShellHello:
            return check<ShellHello>(header, bytes);
        case FrameType::kExec:
            return check<Exec>(header, bytes);
        case FrameType::kRunPackaged:
            return check<RunPackaged>(header, bytes);
        case FrameType::kPut:
            return check<Put>(header, bytes);
        case FrameType::kGet:
            return check<Get>(header, bytes);
        case FrameType::kExists:
            return check<Exists>(header, bytes);
        case FrameType::kResult:
            return check<Result>(header, bytes);
        case FrameType::kEnd:
            return check<End>(header, bytes);
        case FrameType::kFileInfo:
            return check<FileInfo>(header, bytes);
        case FrameType::kAnswer:
            return check<Answer>(header, bytes);
        case FrameType::kError:
            return check<Error>(header, bytes);
        case FrameType::kMac:
        case FrameType::kOutput:
        case FrameType::kData:
            return;
    }
    // decodeHeader let an unknown type through.
    std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // A stream of frames, as it comes off a connection.
    while (size >= kHeaderBytes) {
        FrameHeader header;
        try {
            header = decodeHeader(data);
        } catch (const ProtocolError&) {
            return 0;
        }
        require(header.length <= kMaxBodyBytes);
        require(encodeHeader(header) ==
                std::string(reinterpret_cast<const char*>(data), kHeaderBytes));
        const std::size_t length = std::min<std::size_t>(header.length, size - kHeaderBytes);
        const std::string body(reinterpret_cast<const char*>(data) + kHeaderBytes, length);
        data += kHeaderBytes + length;
        size -= kHeaderBytes + length;
        try {
            // A body cut short by the end of the input must be refused like any other.
            header.length = static_cast<std::uint32_t>(length);
            checkBody(header, body);
        } catch (const ProtocolError&) {
            continue;
        }
    }
    return 0;
}
