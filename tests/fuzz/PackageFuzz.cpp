// Packaged tools: raw bytes as a package, and real packages with some of their bytes changed. A
// changed package must be refused and leave nothing; an unchanged one must open.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "TempDir.h"
#include "ToolPackage.h"
#include "UniqueFd.h"

namespace {

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

const toolpackage::ToolKey& theKey() {
    static const toolpackage::ToolKey key(std::string(toolpackage::kKeyBytes, 'k'));
    return key;
}

// Packages of one, one full, and three chunks.
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

// Whether the bytes are a package that opens; what a refused one leaves behind is checked here.
bool opens(const std::string& bytes) {
    const UniqueFd in(::memfd_create("package", MFD_CLOEXEC));
    const UniqueFd out(::memfd_create("plain", MFD_CLOEXEC));
    require(in && out);
    require(::write(in.get(), bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
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

// Applies changes of five bytes each: what, where (three bytes), with which byte.
void tryChangedSample(const std::string& sample, const std::string& changes) {
    std::string bytes = sample;
    for (std::size_t i = 0; i + 5 <= changes.size(); i += 5) {
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
                std::rotate(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(where),
                            bytes.end());
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
    const std::size_t kind = data[0] % (samples().size() + 1);
    if (kind == 0) {
        tryRawBytes(rest);
    } else {
        tryChangedSample(samples()[kind - 1], rest);
    }
    return 0;
}
