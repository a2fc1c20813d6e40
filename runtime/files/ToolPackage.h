#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "CException.h"

// Packaged tools ("<tool>.enc"). A tool is sealed with the cluster's tool key: what lies in a
// node's tools/ directory cannot be run by itself, and a change to it is noticed.
//
// A package is a header, then the tool in chunks of kChunkBytes (the last one shorter; an empty
// tool has one empty chunk), each followed by its tag of kTagBytes. All numbers are big-endian:
//
//   magic 8 | version 16 bits | name length 16 bits | plain size 64 bits | salt 32 bytes | name
//
// The package's own key and nonce prefix are HKDF-SHA256(tool key, salt, header). Chunk n is sealed
// with AES-256-GCM under the nonce prefix(7) | n(4) | last(1) with the header as associated data: a
// changed header, a flipped bit, chunks cut off, swapped or taken from another package all fail.
//
// Every function reads and writes in chunks; none holds a whole tool. All throw CException with a
// message for the user. There is no state: any thread may call, each on files of its own.
namespace toolpackage {

constexpr std::size_t kKeyBytes = 32;
constexpr std::size_t kSaltBytes = 32;
constexpr std::size_t kTagBytes = 16;
constexpr std::size_t kChunkBytes = std::size_t{64} * 1024;
constexpr std::size_t kFixedHeaderBytes = 52;
// With ".enc" a name must fit into a directory entry.
constexpr std::size_t kMaxNameBytes = 200;
constexpr std::uint64_t kMaxPlainBytes = std::uint64_t{1} << 40;
constexpr std::uint16_t kVersion = 1;
constexpr char kSuffix[] = ".enc";

// The cluster's tool key. The destructor wipes its bytes.
class ToolKey {
public:
    // bytes must hold exactly kKeyBytes.
    explicit ToolKey(const std::string& bytes);
    ToolKey(const ToolKey&) = default;
    ToolKey& operator=(const ToolKey&) = default;
    ~ToolKey();

    // Reads a key file: a regular file of exactly kKeyBytes that belongs to the caller or to root
    // and that nobody else may read or write.
    static ToolKey load(const std::string& path);
    // Writes a new random key into a new file of mode 0600. Never touches an existing file.
    static void createFile(const std::string& path);

    const unsigned char* data() const { return key.data(); }

private:
    std::array<unsigned char, kKeyBytes> key{};
};

struct PackageHeader {
    std::string toolName;
    std::uint64_t plainSize = 0;
    std::array<unsigned char, kSaltBytes> salt{};

    std::uint64_t chunks() const;
    // Of the whole package, header and tags included.
    std::uint64_t packageSize() const;
};

// A name that may stand unquoted in a shell line and is no path: letters, digits and "_.+-", not
// beginning with "." or "-", at most kMaxNameBytes.
bool isToolName(const std::string& name);
// "romutil" for "romutil.enc"; throws when the name is not that of a package. Takes no path.
std::string toolNameOf(const std::string& packageName);

// The header as the file has it. decodeHeader takes the beginning of a package; bytes behind the
// header are ignored.
std::string encodeHeader(const PackageHeader& header);
PackageHeader decodeHeader(const unsigned char* bytes, std::size_t size);

// Reads the header from the start of a package, whatever the descriptor's position. Do not trust
// its content before unpack or verify has returned.
PackageHeader readHeader(int packageFd);

// Packs the file toolPath under its own base name into outPath, which is replaced as a whole or
// not at all. Its mode is 0644, since the content is sealed.
void pack(const std::string& toolPath, const ToolKey& key, const std::string& outPath);

// Checks the whole package and writes the plain tool to outFd, from its current position on.
//   packageFd         a regular file, read from its start whatever its position
//   expectedToolName  the name that the package's file carries; another one inside is refused
// The tool may be used only after unpack has returned: on any failure outFd, a temporary file of
// the caller's, is truncated to nothing and CException is thrown.
void unpack(int packageFd, const std::string& expectedToolName, const ToolKey& key, int outFd);

// The same checks, keeping nothing of the tool.
void verify(int packageFd, const std::string& expectedToolName, const ToolKey& key);

}  // namespace toolpackage
