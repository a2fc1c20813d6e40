#pragma once

#include <cstdint>
#include <list>
#include <string>

#include "CException.h"

// The wire protocol between the shell and kelnode: frames, their bodies, and the one decoder that
// both ends and the fuzz harnesses use. Everything here is a pure function of bytes;
// FrameChannel moves them. docs/protocol.md is the prose.
//
// A frame is a header of 8 bytes (body length, 32 bits; type, 8; flags, 8; reserved, 16, always 0;
// big-endian) and a body of at most kMaxBodyBytes. Strings in a body are a 32-bit length and the
// bytes. A body must be used up exactly: bytes left over are as wrong as bytes missing.
//
// The order on a connection: the agent sends AGENT_HELLO; the shell sends SHELL_HELLO and its first
// request without waiting in between; then each request gets its replies before the next is sent.
// Before a request SHELL_HELLO may come again, with another command's number; it has no reply.
//
//   EXEC, RUN_PACKAGED   -> OUTPUT* RESULT | ERROR
//   PUT DATA* END        -> RESULT | ERROR          (ERROR may come while DATA is still being sent)
//   GET                  -> FILE_INFO DATA* END | ERROR
//   EXISTS, MAC          -> ANSWER | ERROR
//
// An ERROR whose code is kErrorProtocol ends the connection; the others leave it usable, except
// during PUT, where the shell closes.
namespace protocol {

constexpr std::uint16_t kLowestVersion = 1;
constexpr std::uint16_t kHighestVersion = 1;
constexpr char kAlpn[] = "kelsh/1";

constexpr std::size_t kHeaderBytes = 8;
constexpr std::uint32_t kMaxBodyBytes = 256 * 1024;
// A file travels in pieces of this size: a frame of it fills eight TLS records to the last byte.
constexpr std::size_t kDataChunkBytes = std::size_t{128} * 1024 - kHeaderBytes;
constexpr std::size_t kDigestBytes = 32;

enum class FrameType : std::uint8_t {
    kAgentHello = 0x01,
    kShellHello = 0x02,

    kExec = 0x10,
    kRunPackaged = 0x11,
    kPut = 0x12,
    kGet = 0x13,
    kExists = 0x14,
    kMac = 0x15,

    kOutput = 0x20,
    kResult = 0x21,
    kData = 0x22,
    kEnd = 0x23,
    kFileInfo = 0x24,
    kAnswer = 0x25,
    kError = 0x2f,
};

// Flags of EXEC and RUN_PACKAGED; every other frame has none.
constexpr std::uint8_t kFlagUninterruptible = 0x01;

enum ErrorCode : std::uint16_t {
    kErrorProtocol = 1,    // the peer broke the rules; the connection ends
    kErrorRefused = 2,     // not now or not you: busy, not allowed
    kErrorNotStarted = 3,  // the job could not be started: nothing ran
    kErrorFile = 4,        // a file could not be read or written
    kErrorTimedOut = 5,    // a transfer ran out of its time
    kErrorDigest = 6,      // a file arrived damaged
};

// Bad bytes from the peer. Only that connection suffers.
class ProtocolError : public CException {
public:
    using CException::CException;
};

struct FrameHeader {
    std::uint32_t length = 0;
    FrameType type = FrameType::kError;
    std::uint8_t flags = 0;
};

struct Frame {
    FrameHeader header;
    std::string body;
};

struct AgentHello {
    std::uint16_t lowestVersion = kLowestVersion;
    std::uint16_t highestVersion = kHighestVersion;
    std::string build;
    std::string nodeName;
};

struct ShellHello {
    std::uint16_t version = kHighestVersion;
    std::string build;
    std::string user;            // who runs the shell, for the node's log
    std::uint32_t sequence = 0;  // the shell's command number, 0 when there is none
};

struct Exec {
    std::uint32_t timeOutMs = 0;  // milliseconds left; 0 means no limit
    std::string commandLine;
};

struct RunPackaged {
    std::uint32_t timeOutMs = 0;
    std::string preCommand;
    std::string arguments;
    std::string nodePath;
    std::list<std::string> packagedFiles;  // the first is the program
    std::list<std::string> companionFiles;
};

struct Put {
    std::uint32_t timeOutMs = 0;
    std::string path;
    std::uint64_t size = 0;
    std::uint32_t mode = 0;  // permission bits only
};

struct Get {
    std::uint32_t timeOutMs = 0;
    std::string path;
};

struct Exists {
    std::string path;
};

struct FileInfo {
    std::uint64_t size = 0;
    std::uint32_t mode = 0;
};

// The end of a job or of a PUT.
struct Result {
    enum class Ending : std::uint8_t {
        kExited = 0,     // value is the exit code
        kSignaled = 1,   // value is the signal
        kTimedOut = 2,   // ended by the agent at its time-out
        kCancelled = 3,  // ended because the shell went away
    };
    Ending ending = Ending::kExited;
    std::int32_t value = 0;
    std::uint32_t elapsedMs = 0;
    std::string text;  // a sentence for the user; empty after a job
};

// The answer to EXISTS ("1" or "0") and to MAC (the address, possibly empty).
struct Answer {
    std::string text;
};

struct Error {
    std::uint16_t code = kErrorProtocol;
    std::string text;
};

// The end of a file's DATA: the SHA-256 of all of it.
struct End {
    std::string digest;  // kDigestBytes raw bytes
};

// Header. decodeHeader throws ProtocolError for an unknown type, a body over kMaxBodyBytes, a flag
// that the type does not have, or reserved bits that are set. bytes holds kHeaderBytes.
std::string encodeHeader(const FrameHeader& header);
FrameHeader decodeHeader(const unsigned char* bytes);

// Whole frames. DATA and OUTPUT carry raw bytes as their body.
std::string encode(const AgentHello& body);
std::string encode(const ShellHello& body);
std::string encode(const Exec& body, std::uint8_t flags);
std::string encode(const RunPackaged& body, std::uint8_t flags);
std::string encode(const Put& body);
std::string encode(const Get& body);
std::string encode(const Exists& body);
std::string encodeMacRequest();
std::string encode(const FileInfo& body);
std::string encode(const Result& body);
std::string encode(const Answer& body);
std::string encode(const Error& body);
std::string encode(const End& body);

// Bodies. Each throws ProtocolError when the bytes are not exactly such a body.
void decode(const std::string& bytes, AgentHello& body);
void decode(const std::string& bytes, ShellHello& body);
void decode(const std::string& bytes, Exec& body);
void decode(const std::string& bytes, RunPackaged& body);
void decode(const std::string& bytes, Put& body);
void decode(const std::string& bytes, Get& body);
void decode(const std::string& bytes, Exists& body);
void decode(const std::string& bytes, FileInfo& body);
void decode(const std::string& bytes, Result& body);
void decode(const std::string& bytes, Answer& body);
void decode(const std::string& bytes, Error& body);
void decode(const std::string& bytes, End& body);

// The highest version both ends speak; 0 when the ranges do not overlap.
std::uint16_t commonVersion(const AgentHello& agent);

// For logs and messages: "EXEC", "GET", ...
const char* name(FrameType type);

}  // namespace protocol
