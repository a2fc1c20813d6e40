// Packaged tools: raw bytes as a package, and real packages with some of their bytes changed. A
// changed package must be refused and leave nothing; an unchanged one must open.

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <numeric>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "Require.h"
#include "TempDir.h"
#include "ToolPackage.h"
#include "UniqueFd.h"

namespace {

constexpr std::size_t kMostChanges = 8;
// One in so many inputs that ask for a sample of whole chunks gets it: sealing and opening those
// takes a hundred times as long as a small one does.
constexpr unsigned int kLargeSamplesAre = 32;

const toolpackage::ToolKey& theKey() {
    static const toolpackage::ToolKey key(std::string(toolpackage::kKeyBytes, 'k'));
    return key;
}

// Packages of an empty and a short chunk, of one full, and of three chunks.
constexpr std::size_t kSmallSamples = 2;
const std::vector<std::string>& samples() {
    static const std::vector<std::string> packages = [] {
        std::vector<std::string> made;
        const TempDir directory;
        for (const std::size_t size : {std::size_t{0}, std::size_t{9}, toolpackage::kChunkBytes,
                                       2 * toolpackage::kChunkBytes + 1}) {
            std::ofstream(directory.file("tool"), std::ios::trunc) << std::string(size, 't');
            toolpackage::pack(directory.file("tool"), theKey(), directory.file("tool.enc"));
            std::ifstream package(directory.file("tool.enc"), std::ios::binary);
            made.emplace_back(std::istreambuf_iterator<char>(package),
                              std::istreambuf_iterator<char>());
        }
        return made;
    }();
    return packages;
}

// An empty file in memory, the same one each time: making one costs more than unpacking.
const UniqueFd& emptied(const UniqueFd& file) {
    require(file && ::ftruncate(file.get(), 0) == 0 && ::lseek(file.get(), 0, SEEK_SET) == 0);
    return file;
}

// Whether the bytes are a package that opens; what a refused one leaves behind is checked here.
bool opens(const std::string& bytes) {
    static const UniqueFd package(::memfd_create("package", MFD_CLOEXEC));
    static const UniqueFd plain(::memfd_create("plain", MFD_CLOEXEC));
    const UniqueFd& in = emptied(package);
    const UniqueFd& out = emptied(plain);
    require(::pwrite(in.get(), bytes.data(), bytes.size(), 0) ==
            static_cast<ssize_t>(bytes.size()));
    bool opened = true;
    try {
        toolpackage::unpack(in.get(), "tool", theKey(), out.get());
    } catch (const CException&) {
        opened = false;
    }
    struct stat info {};
    require(::fstat(out.get(), &info) == 0);
    require(opened || info.st_size == 0);
    return opened;
}

void tryRawBytes(const std::string& bytes) {
    try {
        const toolpackage::PackageHeader header = toolpackage::decodeHeader(
            reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
        const std::string again = toolpackage::encodeHeader(header);
        require(bytes.compare(0, again.size(), again) == 0);
        require(toolpackage::isToolName(header.toolName));
    } catch (const CException&) {
        require(!opens(bytes));
        return;
    }
    opens(bytes);
}

// Applies changes of five bytes each: what, where (three bytes), with which byte. A few are as good
// as hundreds, which would only cost time.
void tryChangedSample(const std::string& sample, const std::string& changes) {
    std::string bytes = sample;
    const std::size_t used = std::min(changes.size(), 5 * kMostChanges);
    for (std::size_t i = 0; i + 5 <= used; i += 5) {
        const auto byteAt = [&](std::size_t n) {
            return static_cast<unsigned char>(changes[i + n]);
        };
        const std::size_t where =
            ((std::size_t{byteAt(1)} << 16) | (std::size_t{byteAt(2)} << 8) | byteAt(3)) %
            (bytes.size() + 1);
        const char value = changes[i + 4];
        switch (byteAt(0) % 4) {
            case 0:
                bytes.resize(where);
                break;
            case 1:
                bytes.insert(where, 1, value);
                break;
            case 2:
                bytes = bytes.substr(where) + bytes.substr(0, where);
                break;
            default:
                if (where < bytes.size()) {
                    bytes[where] = static_cast<char>(bytes[where] ^ value);
                }
        }
    }
    require(opens(bytes) == (bytes == sample));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::string rest(reinterpret_cast<const char*>(data) + 1, size - 1);
    std::size_t kind = data[0] % (samples().size() + 1);
    if (kind > kSmallSamples && std::accumulate(data, data + size, 0U) % kLargeSamplesAre != 0) {
        kind -= kSmallSamples;
    }
    if (kind == 0) {
        tryRawBytes(rest);
    } else {
        tryChangedSample(samples()[kind - 1], rest);
    }
    return 0;
}
