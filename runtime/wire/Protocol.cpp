#include "Protocol.h"

#include <algorithm>
#include <utility>

namespace protocol {
namespace {

// Builds one frame; the header is filled in last, when the length is known.
class Writer {
public:
    Writer() : bytes(kHeaderBytes, '\0') {}

    void number8(std::uint8_t value) { bytes += static_cast<char>(value); }
    void number16(std::uint16_t value) { bigEndian(value, 2); }
    void number32(std::uint32_t value) { bigEndian(value, 4); }
    void number64(std::uint64_t value) { bigEndian(value, 8); }
    void raw(const std::string& value) { bytes += value; }

    void text(const std::string& value) {
        refuseLength(value.size());
        number32(static_cast<std::uint32_t>(value.size()));
        bytes += value;
    }

    // What the agent hands to the operating system ends at a NUL byte; it must not be cut there.
    void name(const std::string& value) {
        if (value.find('\0') != std::string::npos) {
            throw ProtocolError("a request must not contain a NUL byte");
        }
        text(value);
    }

    void names(const std::list<std::string>& values) {
        number32(static_cast<std::uint32_t>(values.size()));
        for (const std::string& value : values) {
            name(value);
        }
    }

    std::string finish(FrameType type, std::uint8_t flags = 0) {
        refuseLength(bytes.size() - kHeaderBytes);
        FrameHeader header;
        header.length = static_cast<std::uint32_t>(bytes.size() - kHeaderBytes);
        header.type = type;
        header.flags = flags;
        bytes.replace(0, kHeaderBytes, encodeHeader(header));
        return std::move(bytes);
    }

private:
    static void refuseLength(std::size_t length) {
        if (length > kMaxBodyBytes) {
            throw ProtocolError("a request of " + std::to_string(length) +
                                " bytes is too long; the limit is " +
                                std::to_string(kMaxBodyBytes));
        }
    }

    void bigEndian(std::uint64_t value, int width) {
        for (int shift = 8 * (width - 1); shift >= 0; shift -= 8) {
            bytes += static_cast<char>((value >> shift) & 0xff);
        }
    }

    std::string bytes;
};

// Takes a body apart. Every length is checked against what is left before it is used.
class Reader {
public:
    Reader(const std::string& body, const char* frame) : bytes(body), frameName(frame) {}

    std::uint8_t number8() { return static_cast<std::uint8_t>(bigEndian(1)); }
    std::uint16_t number16() { return static_cast<std::uint16_t>(bigEndian(2)); }
    std::uint32_t number32() { return static_cast<std::uint32_t>(bigEndian(4)); }
    std::uint64_t number64() { return bigEndian(8); }

    std::string raw(std::size_t length) {
        require(length);
        std::string value = bytes.substr(at, length);
        at += length;
        return value;
    }

    std::string text() { return raw(number32()); }

    std::string name() {
        std::string value = text();
        if (value.find('\0') != std::string::npos) {
            wrong("a NUL byte in a name");
        }
        return value;
    }

    std::list<std::string> names() {
        std::list<std::string> values;
        for (std::uint32_t count = number32(); count > 0; --count) {
            values.push_back(name());
        }
        return values;
    }

    void end() const {
        if (at != bytes.size()) {
            wrong("bytes left over");
        }
    }

    [[noreturn]] void wrong(const char* what) const {
        throw ProtocolError(std::string(what) + " in a " + frameName + " frame");
    }

private:
    void require(std::size_t length) const {
        if (length > bytes.size() - at) {
            wrong("bytes missing");
        }
    }

    std::uint64_t bigEndian(std::size_t width) {
        require(width);
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < width; ++i) {
            value = (value << 8) | static_cast<unsigned char>(bytes[at + i]);
        }
        at += width;
        return value;
    }

    const std::string& bytes;
    const char* frameName;
    std::size_t at = 0;
};

struct TypeEntry {
    FrameType type;
    const char* name;
    std::uint8_t flags;  // those it may have
};

constexpr TypeEntry kTypes[] = {
    {FrameType::kAgentHello, "AGENT_HELLO", 0},
    {FrameType::kShellHello, "SHELL_HELLO", 0},
    {FrameType::kExec, "EXEC", kFlagUninterruptible},
    {FrameType::kRunPackaged, "RUN_PACKAGED", kFlagUninterruptible},
    {FrameType::kPut, "PUT", 0},
    {FrameType::kGet, "GET", 0},
    {FrameType::kExists, "EXISTS", 0},
    {FrameType::kMac, "MAC", 0},
    {FrameType::kOutput, "OUTPUT", 0},
    {FrameType::kResult, "RESULT", 0},
    {FrameType::kData, "DATA", 0},
    {FrameType::kEnd, "END", 0},
    {FrameType::kFileInfo, "FILE_INFO", 0},
    {FrameType::kAnswer, "ANSWER", 0},
    {FrameType::kError, "ERROR", 0},
};

const TypeEntry* findType(FrameType type) {
    const auto* entry = std::find_if(std::begin(kTypes), std::end(kTypes),
                                     [&](const TypeEntry& e) { return e.type == type; });
    return entry == std::end(kTypes) ? nullptr : entry;
}

}  // namespace

std::string encodeHeader(const FrameHeader& header) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8) {
        bytes += static_cast<char>((header.length >> shift) & 0xff);
    }
    bytes += static_cast<char>(header.type);
    bytes += static_cast<char>(header.flags);
    bytes.append(2, '\0');
    return bytes;
}

FrameHeader decodeHeader(const unsigned char* bytes) {
    FrameHeader header;
    for (int i = 0; i < 4; ++i) {
        header.length = (header.length << 8) | bytes[i];
    }
    header.type = static_cast<FrameType>(bytes[4]);
    header.flags = bytes[5];
    const TypeEntry* entry = findType(header.type);
    if (entry == nullptr) {
        throw ProtocolError("frame of unknown type " + std::to_string(bytes[4]));
    }
    if (header.length > kMaxBodyBytes) {
        throw ProtocolError(std::string(entry->name) + " frame of " +
                            std::to_string(header.length) + " bytes; the limit is " +
                            std::to_string(kMaxBodyBytes));
    }
    if ((header.flags & ~entry->flags) != 0) {
        throw ProtocolError(std::string(entry->name) + " frame with unknown flags " +
                            std::to_string(header.flags));
    }
    if (bytes[6] != 0 || bytes[7] != 0) {
        throw ProtocolError(std::string(entry->name) + " frame with reserved bits set");
    }
    return header;
}

std::string encode(const AgentHello& body) {
    Writer out;
    out.number16(body.lowestVersion);
    out.number16(body.highestVersion);
    out.text(body.build);
    out.text(body.nodeName);
    return out.finish(FrameType::kAgentHello);
}

std::string encode(const ShellHello& body) {
    Writer out;
    out.number16(body.version);
    out.text(body.build);
    out.text(body.user);
    out.number32(body.sequence);
    return out.finish(FrameType::kShellHello);
}

std::string encode(const Exec& body, std::uint8_t flags) {
    Writer out;
    out.number32(body.timeOutMs);
    out.name(body.commandLine);
    return out.finish(FrameType::kExec, flags);
}

std::string encode(const RunPackaged& body, std::uint8_t flags) {
    Writer out;
    out.number32(body.timeOutMs);
    out.name(body.preCommand);
    out.name(body.arguments);
    out.name(body.nodePath);
    out.names(body.packagedFiles);
    out.names(body.companionFiles);
    return out.finish(FrameType::kRunPackaged, flags);
}

std::string encode(const Put& body) {
    Writer out;
    out.number32(body.timeOutMs);
    out.name(body.path);
    out.number64(body.size);
    out.number32(body.mode);
    return out.finish(FrameType::kPut);
}

std::string encode(const Get& body) {
    Writer out;
    out.number32(body.timeOutMs);
    out.name(body.path);
    return out.finish(FrameType::kGet);
}

std::string encode(const Exists& body) {
    Writer out;
    out.name(body.path);
    return out.finish(FrameType::kExists);
}

std::string encodeMacRequest() {
    return Writer().finish(FrameType::kMac);
}

std::string encode(const FileInfo& body) {
    Writer out;
    out.number64(body.size);
    out.number32(body.mode);
    return out.finish(FrameType::kFileInfo);
}

std::string encode(const Result& body) {
    Writer out;
    out.number8(static_cast<std::uint8_t>(body.ending));
    out.number32(static_cast<std::uint32_t>(body.value));
    out.number32(body.elapsedMs);
    out.text(body.text);
    return out.finish(FrameType::kResult);
}

std::string encode(const Answer& body) {
    Writer out;
    out.text(body.text);
    return out.finish(FrameType::kAnswer);
}

std::string encode(const Error& body) {
    Writer out;
    out.number16(body.code);
    out.text(body.text);
    return out.finish(FrameType::kError);
}

std::string encode(const End& body) {
    if (body.digest.size() != kDigestBytes) {
        throw ProtocolError("a digest has " + std::to_string(kDigestBytes) + " bytes");
    }
    Writer out;
    out.raw(body.digest);
    return out.finish(FrameType::kEnd);
}

void decode(const std::string& bytes, AgentHello& body) {
    Reader in(bytes, "AGENT_HELLO");
    body.lowestVersion = in.number16();
    body.highestVersion = in.number16();
    body.build = in.text();
    body.nodeName = in.text();
    in.end();
    if (body.lowestVersion > body.highestVersion) {
        in.wrong("a reversed range of versions");
    }
}

void decode(const std::string& bytes, ShellHello& body) {
    Reader in(bytes, "SHELL_HELLO");
    body.version = in.number16();
    body.build = in.text();
    body.user = in.text();
    body.sequence = in.number32();
    in.end();
}

void decode(const std::string& bytes, Exec& body) {
    Reader in(bytes, "EXEC");
    body.timeOutMs = in.number32();
    body.commandLine = in.name();
    in.end();
}

void decode(const std::string& bytes, RunPackaged& body) {
    Reader in(bytes, "RUN_PACKAGED");
    body.timeOutMs = in.number32();
    body.preCommand = in.name();
    body.arguments = in.name();
    body.nodePath = in.name();
    body.packagedFiles = in.names();
    body.companionFiles = in.names();
    in.end();
}

void decode(const std::string& bytes, Put& body) {
    Reader in(bytes, "PUT");
    body.timeOutMs = in.number32();
    body.path = in.name();
    body.size = in.number64();
    body.mode = in.number32();
    in.end();
}

void decode(const std::string& bytes, Get& body) {
    Reader in(bytes, "GET");
    body.timeOutMs = in.number32();
    body.path = in.name();
    in.end();
}

void decode(const std::string& bytes, Exists& body) {
    Reader in(bytes, "EXISTS");
    body.path = in.name();
    in.end();
}

void decode(const std::string& bytes, FileInfo& body) {
    Reader in(bytes, "FILE_INFO");
    body.size = in.number64();
    body.mode = in.number32();
    in.end();
}

void decode(const std::string& bytes, Result& body) {
    Reader in(bytes, "RESULT");
    const std::uint8_t ending = in.number8();
    if (ending > static_cast<std::uint8_t>(Result::Ending::kCancelled)) {
        in.wrong("an unknown ending");
    }
    body.ending = static_cast<Result::Ending>(ending);
    body.value = static_cast<std::int32_t>(in.number32());
    body.elapsedMs = in.number32();
    body.text = in.text();
    in.end();
}

void decode(const std::string& bytes, Answer& body) {
    Reader in(bytes, "ANSWER");
    body.text = in.text();
    in.end();
}

void decode(const std::string& bytes, Error& body) {
    Reader in(bytes, "ERROR");
    body.code = in.number16();
    body.text = in.text();
    in.end();
}

void decode(const std::string& bytes, End& body) {
    Reader in(bytes, "END");
    body.digest = in.raw(kDigestBytes);
    in.end();
}

std::uint16_t commonVersion(const AgentHello& agent) {
    const std::uint16_t lowest = std::max(agent.lowestVersion, kLowestVersion);
    const std::uint16_t highest = std::min(agent.highestVersion, kHighestVersion);
    return lowest <= highest ? highest : std::uint16_t{0};
}

const char* name(FrameType type) {
    const TypeEntry* entry = findType(type);
    return entry == nullptr ? "unknown" : entry->name;
}

}  // namespace protocol
