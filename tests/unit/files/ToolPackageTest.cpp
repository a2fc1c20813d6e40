#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TempDir.h"
#include "ToolPackage.h"
#include "UniqueFd.h"

using testing::EndsWith;
using testing::HasSubstr;
using toolpackage::ToolKey;

namespace {

void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << bytes;
    ASSERT_TRUE(file.flush());
}

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string someBytes(std::size_t size) {
    std::mt19937 random(static_cast<unsigned>(size));
    std::string bytes(size, '\0');
    for (char& byte : bytes) {
        byte = static_cast<char>(random());
    }
    return bytes;
}

// The message with which the call fails; empty when it does not fail.
template <typename Call>
std::string failure(Call call) {
    try {
        call();
    } catch (const CException& fault) {
        return fault.getErrMsg().empty() ? "(no message)" : fault.getErrMsg();
    }
    return "";
}

class ToolPackage : public testing::Test {
protected:
    ToolPackage() : key(std::string(toolpackage::kKeyBytes, 'k')) {}

    // Packs the content as a tool of that name; returns the package's bytes.
    std::string packed(const std::string& content, const std::string& name = "romutil") {
        writeFile(directory.file(name), content);
        toolpackage::pack(directory.file(name), key, directory.file(name + ".enc"));
        return readFile(directory.file(name + ".enc"));
    }

    // Unpacks bytes that lie in a file of that name; the plain text, or the failure in "reason".
    std::string unpacked(const std::string& package, const std::string& name = "romutil") {
        return unpackedWith(package, name, key);
    }

    std::string unpackedWith(const std::string& package, const std::string& name,
                             const ToolKey& with) {
        // In memory: ten thousand of them would keep a disk busy.
        const UniqueFd in(::memfd_create("package", MFD_CLOEXEC));
        const UniqueFd out(::memfd_create("plain", MFD_CLOEXEC));
        EXPECT_EQ(static_cast<ssize_t>(package.size()),
                  ::write(in.get(), package.data(), package.size()));
        reason = failure([&] { toolpackage::unpack(in.get(), name, with, out.get()); });
        const std::string verified = failure([&] { toolpackage::verify(in.get(), name, with); });
        EXPECT_EQ(reason, verified);
        struct stat info {};
        EXPECT_EQ(0, ::fstat(out.get(), &info));
        std::string plain(static_cast<std::size_t>(info.st_size), '\0');
        EXPECT_EQ(info.st_size, ::pread(out.get(), plain.data(), plain.size(), 0));
        return plain;
    }

    // A damaged package must fail and leave nothing behind.
    void expectRefused(const std::string& package, const std::string& name = "romutil") {
        EXPECT_EQ("", unpacked(package, name));
        EXPECT_NE(reason, "");
    }

    TempDir directory;
    ToolKey key;
    std::string reason;
};

TEST_F(ToolPackage, GivesBackEverySizeAroundAChunk) {
    for (const std::size_t size :
         {std::size_t{0}, std::size_t{1}, toolpackage::kChunkBytes - 1, toolpackage::kChunkBytes,
          toolpackage::kChunkBytes + 1, 3 * toolpackage::kChunkBytes}) {
        const std::string content = someBytes(size);
        const std::string package = packed(content);
        EXPECT_EQ(content, unpacked(package)) << size;
        EXPECT_EQ("", reason) << size;
    }
}

TEST_F(ToolPackage, HidesTheTool) {
    const std::string content = "#!/bin/sh\necho the secret of this tool\n";
    EXPECT_THAT(packed(content), testing::Not(HasSubstr("secret")));
}

TEST_F(ToolPackage, SealsTheSameToolDifferentlyEachTime) {
    const std::string content = someBytes(100);
    EXPECT_NE(packed(content), packed(content));
}

TEST_F(ToolPackage, TellsNameSizeAndChunksFromTheHeader) {
    packed(someBytes(toolpackage::kChunkBytes + 1));
    const UniqueFd in(::open(directory.file("romutil.enc").c_str(), O_RDONLY | O_CLOEXEC));
    const toolpackage::PackageHeader header = toolpackage::readHeader(in.get());
    EXPECT_EQ("romutil", header.toolName);
    EXPECT_EQ(header.plainSize, toolpackage::kChunkBytes + 1);
    EXPECT_EQ(2u, header.chunks());
    EXPECT_EQ(header.packageSize(), readFile(directory.file("romutil.enc")).size());
}

TEST_F(ToolPackage, RefusesEveryFlippedBitOfTheHeader) {
    const std::string package = packed("echo hello\n");
    for (std::size_t byte = 0; byte < toolpackage::kFixedHeaderBytes + 7; ++byte) {
        for (int bit = 0; bit < 8; ++bit) {
            std::string damaged = package;
            damaged[byte] = static_cast<char>(damaged[byte] ^ (1 << bit));
            expectRefused(damaged);
        }
    }
}

TEST_F(ToolPackage, RefusesTenThousandRandomFlips) {
    const std::string package = packed(someBytes(2000));
    std::mt19937 random(20240117);
    for (int i = 0; i < 10000; ++i) {
        const std::size_t bit = random() % (package.size() * 8);
        std::string damaged = package;
        damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ (1 << bit % 8));
        expectRefused(damaged);
        ASSERT_FALSE(HasFailure()) << "bit " << bit;
    }
}

TEST_F(ToolPackage, RefusesTruncationAtEveryChunkBorder) {
    const std::string package = packed(someBytes(3 * toolpackage::kChunkBytes + 5));
    const std::size_t header = toolpackage::kFixedHeaderBytes + 7;
    const std::size_t sealedChunk = toolpackage::kChunkBytes + toolpackage::kTagBytes;
    for (std::size_t chunks = 0; chunks <= 3; ++chunks) {
        const std::size_t border = header + chunks * sealedChunk;
        for (const std::size_t size : {border - 1, border, border + 1}) {
            expectRefused(package.substr(0, size));
        }
    }
    expectRefused(package.substr(0, package.size() - 1));
}

TEST_F(ToolPackage, RefusesTruncationThatAdjustsTheSizeInTheHeader) {
    std::string package = packed(someBytes(2 * toolpackage::kChunkBytes));
    const std::size_t header = toolpackage::kFixedHeaderBytes + 7;
    package.resize(header + toolpackage::kChunkBytes + toolpackage::kTagBytes);
    // The plain size, 64 bits at offset 12: now that of one chunk.
    package[17] = 1;
    package[18] = 0;
    package[19] = 0;
    expectRefused(package);
    EXPECT_THAT(reason, HasSubstr("does not verify"));
}

TEST_F(ToolPackage, RefusesSwappedChunks) {
    const std::string package = packed(someBytes(3 * toolpackage::kChunkBytes));
    const std::size_t header = toolpackage::kFixedHeaderBytes + 7;
    const std::size_t sealedChunk = toolpackage::kChunkBytes + toolpackage::kTagBytes;
    const std::string first = package.substr(header, sealedChunk);
    const std::string second = package.substr(header + sealedChunk, sealedChunk);
    const std::string third = package.substr(header + 2 * sealedChunk);
    const std::string start = package.substr(0, header);
    expectRefused(start + second + first + third);
    expectRefused(start + first + third + second);
    expectRefused(start + first + first + third);
}

TEST_F(ToolPackage, RefusesAChunkOfAnotherPackage) {
    const std::string one = packed(someBytes(2 * toolpackage::kChunkBytes));
    const std::string other = packed(someBytes(2 * toolpackage::kChunkBytes));
    const std::size_t border =
        toolpackage::kFixedHeaderBytes + 7 + toolpackage::kChunkBytes + toolpackage::kTagBytes;
    expectRefused(one.substr(0, border) + other.substr(border));
}

TEST_F(ToolPackage, RefusesBytesBehindTheLastChunk) {
    expectRefused(packed("echo hello\n") + "x");
    EXPECT_THAT(reason, HasSubstr("bytes instead of"));
}

TEST_F(ToolPackage, RefusesARenamedPackage) {
    expectRefused(packed("echo hello\n"), "bmcflash64");
    EXPECT_EQ("package \"bmcflash64.enc\": was made for the tool \"romutil\"", reason);
}

TEST_F(ToolPackage, RefusesAnotherKey) {
    const std::string package = packed("echo hello\n");
    const ToolKey other(std::string(toolpackage::kKeyBytes, 'o'));
    EXPECT_EQ("", unpackedWith(package, "romutil", other));
    EXPECT_THAT(reason, HasSubstr("packed with another key"));
}

TEST_F(ToolPackage, RefusesWhatIsNoPackageAtAll) {
    for (const std::string& bytes :
         {std::string(), std::string("KELPACK"), std::string("#!/bin/sh\necho plain\n"),
          std::string(10000, '\0'), std::string("KELPACK\n")}) {
        expectRefused(bytes);
    }
}

TEST_F(ToolPackage, LeavesNothingOfAnEarlierChunkWhenALaterOneFails) {
    std::string package = packed(someBytes(4 * toolpackage::kChunkBytes));
    package.back() = static_cast<char>(package.back() ^ 1);
    expectRefused(package);
    EXPECT_THAT(reason, HasSubstr("chunk 4 of 4"));
}

TEST_F(ToolPackage, RefusesADirectoryAndAFifo) {
    const UniqueFd folder(::open(directory.path().c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_THAT(failure([&] { toolpackage::verify(folder.get(), "romutil", key); }),
                HasSubstr("not a regular file"));
    ASSERT_EQ(0, ::mkfifo(directory.file("romutil").c_str(), 0600));
    EXPECT_THAT(failure([&] {
                    toolpackage::pack(directory.file("romutil"), key, directory.file("x.enc"));
                }),
                HasSubstr("not a regular file"));
}

TEST_F(ToolPackage, SaysWhyAToolCannotBePacked) {
    EXPECT_THAT(failure([&] {
                    toolpackage::pack(directory.file("absent"), key, directory.file("absent.enc"));
                }),
                EndsWith("cannot be opened: No such file or directory"));
    writeFile(directory.file("two words"), "x");
    EXPECT_THAT(failure([&] {
                    toolpackage::pack(directory.file("two words"), key, directory.file("x.enc"));
                }),
                HasSubstr("the name of a tool may hold"));
    writeFile(directory.file("romutil"), "x");
    EXPECT_THAT(failure([&] {
                    toolpackage::pack(directory.file("romutil"), key,
                                      directory.file("no/such/romutil.enc"));
                }),
                HasSubstr("No such file or directory"));
}

TEST_F(ToolPackage, KeepsTheOldPackageWhenPackingFails) {
    const std::string before = packed("echo hello\n");
    writeFile(directory.file("romutil"), someBytes(3 * toolpackage::kChunkBytes));
    rlimit old{};
    ASSERT_EQ(0, ::getrlimit(RLIMIT_FSIZE, &old));
    const auto ignored = ::signal(SIGXFSZ, SIG_IGN);
    const rlimit small{toolpackage::kChunkBytes, old.rlim_max};
    ASSERT_EQ(0, ::setrlimit(RLIMIT_FSIZE, &small));
    const std::string said = failure(
        [&] { toolpackage::pack(directory.file("romutil"), key, directory.file("romutil.enc")); });
    ASSERT_EQ(0, ::setrlimit(RLIMIT_FSIZE, &old));
    ::signal(SIGXFSZ, ignored);
    EXPECT_THAT(said, HasSubstr("File too large"));
    EXPECT_EQ(before, readFile(directory.file("romutil.enc")));
    std::size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(directory.path())) {
        files += entry.is_regular_file() ? 1 : 0;
    }
    EXPECT_EQ(2u, files) << "a temporary file stayed";
}

TEST_F(ToolPackage, AcceptsOnlyNamesThatMeanNothingToAShell) {
    for (const char* name : {"romutil", "SCELNX_64", "bmcconf-linux.x86_64", "lUpdate.sh", "a+b"}) {
        EXPECT_TRUE(toolpackage::isToolName(name)) << name;
    }
    for (const char* name :
         {"", ".", "..", ".hidden", "-rf", "a/b", "a b", "a;b", "$(id)", "a\nb", "\xc3\xbc"}) {
        EXPECT_FALSE(toolpackage::isToolName(name)) << name;
    }
    EXPECT_TRUE(toolpackage::isToolName(std::string(toolpackage::kMaxNameBytes, 'a')));
    EXPECT_FALSE(toolpackage::isToolName(std::string(toolpackage::kMaxNameBytes + 1, 'a')));
}

TEST_F(ToolPackage, TakesTheToolsNameFromThePackagesName) {
    EXPECT_EQ("romtool.x86_64", toolpackage::toolNameOf("romtool.x86_64.enc"));
    for (const char* name : {"romutil", ".enc", "../romutil.enc", "a b.enc", "", "enc"}) {
        EXPECT_NE(failure([&] { toolpackage::toolNameOf(name); }), "") << name;
    }
}

TEST_F(ToolPackage, DoesNotGrowWithTheTool) {
    // 96 MiB of holes; the resident peak may not follow.
    const UniqueFd tool(
        ::open(directory.file("romutil").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    ASSERT_EQ(0, ::ftruncate(tool.get(), 96 * 1024 * 1024));
    rusage before{};
    ::getrusage(RUSAGE_SELF, &before);
    toolpackage::pack(directory.file("romutil"), key, directory.file("romutil.enc"));
    const UniqueFd in(::open(directory.file("romutil.enc").c_str(), O_RDONLY | O_CLOEXEC));
    toolpackage::verify(in.get(), "romutil", key);
    rusage after{};
    ::getrusage(RUSAGE_SELF, &after);
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 32 * 1024);
}

class ToolKeyFile : public testing::Test {
protected:
    TempDir directory;
    const std::string path = directory.file("toolkey");
};

TEST_F(ToolKeyFile, IsMadeForItsOwnerOnlyAndNeverReplaced) {
    ToolKey::createFile(path);
    struct stat info {};
    ASSERT_EQ(0, ::stat(path.c_str(), &info));
    EXPECT_EQ(0600u, info.st_mode & 07777);
    EXPECT_EQ(static_cast<off_t>(toolpackage::kKeyBytes), info.st_size);
    const std::string bytes = readFile(path);
    EXPECT_THAT(failure([&] { ToolKey::createFile(path); }), EndsWith("File exists"));
    EXPECT_EQ(bytes, readFile(path));
    const ToolKey loaded = ToolKey::load(path);
    EXPECT_EQ(0, std::memcmp(loaded.data(), bytes.data(), bytes.size()));
}

TEST_F(ToolKeyFile, IsRefusedWhenOthersMayReadOrChangeIt) {
    ToolKey::createFile(path);
    for (const mode_t mode : {0640u, 0604u, 0620u, 0602u, 0610u, 0644u}) {
        ASSERT_EQ(0, ::chmod(path.c_str(), mode));
        EXPECT_THAT(failure([&] { ToolKey::load(path); }), HasSubstr("must be 0600")) << mode;
    }
    ASSERT_EQ(0, ::chmod(path.c_str(), 0400));
    EXPECT_EQ("", failure([&] { ToolKey::load(path); }));
}

TEST_F(ToolKeyFile, IsRefusedWithAnotherLength) {
    for (const std::size_t size : {0u, 31u, 33u, 64u}) {
        writeFile(path, std::string(size, 'k'));
        ASSERT_EQ(0, ::chmod(path.c_str(), 0600));
        EXPECT_THAT(failure([&] { ToolKey::load(path); }), HasSubstr("exactly 32 bytes")) << size;
    }
    EXPECT_NE(failure([] { ToolKey(std::string(31, 'k')); }), "");
}

TEST_F(ToolKeyFile, IsRefusedWhenItIsMissingOrNoFile) {
    EXPECT_THAT(failure([&] { ToolKey::load(path); }), EndsWith("No such file or directory"));
    EXPECT_THAT(failure([&] { ToolKey::load(directory.path()); }), HasSubstr("not a regular file"));
    ASSERT_EQ(0, ::mkfifo(path.c_str(), 0600));
    EXPECT_THAT(failure([&] { ToolKey::load(path); }), HasSubstr("not a regular file"));
}

}  // namespace
