// The greetings of both ends, the first bytes either takes from the other. The first input byte
// chooses the direction. What is accepted reads the same when it is sent again, one that differs in
// length is refused, and a version is only ever chosen where both ends speak it.

#include <cstdint>
#include <string>

#include "Protocol.h"
#include "Require.h"
#include "Text.h"

namespace {

using namespace protocol;

template <typename Hello>
bool accepts(const std::string& bytes, Hello& hello) {
    try {
        decode(bytes, hello);
        return true;
    } catch (const ProtocolError& refused) {
        require(!refused.getErrMsg().empty());
        return false;
    }
}

template <typename Hello>
Hello roundTrip(const std::string& bytes, const Hello& hello) {
    require(encode(hello).substr(kHeaderBytes) == bytes);
    Hello other;
    require(!accepts(bytes + '\0', other));
    require(!accepts(bytes.substr(0, bytes.size() - 1), other));
    return hello;
}

void agentSpeaks(const std::string& bytes) {
    AgentHello hello;
    if (!accepts(bytes, hello)) {
        return;
    }
    roundTrip(bytes, hello);
    const std::uint16_t version = commonVersion(hello);
    const bool overlaps = hello.lowestVersion <= kHighestVersion &&
                          hello.highestVersion >= kLowestVersion &&
                          hello.lowestVersion <= hello.highestVersion;
    require((version != 0) == overlaps);
    require(version == 0 || (version >= hello.lowestVersion && version <= hello.highestVersion));
}

void shellSpeaks(const std::string& bytes) {
    ShellHello hello;
    if (!accepts(bytes, hello)) {
        return;
    }
    roundTrip(bytes, hello);
    // The user's name goes into the node's log.
    for (const char c : Text::printable(hello.user, 64)) {
        require(static_cast<unsigned char>(c) >= 0x20 && c != 0x7f);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    if ((data[0] & 1U) == 0) {
        agentSpeaks(bytes);
    } else {
        shellSpeaks(bytes);
    }
    return 0;
}
