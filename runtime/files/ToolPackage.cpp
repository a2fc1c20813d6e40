#include "ToolPackage.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>
#include <openssl/params.h>
#include <openssl/rand.h>

#include "FreedBy.h"
#include "Posix.h"
#include "UniqueFd.h"

namespace toolpackage {
namespace {

constexpr std::array<unsigned char, 8> kMagic{'K', 'E', 'L', 'P', 'A', 'C', 'K', '\n'};
constexpr std::size_t kNoncePrefixBytes = 7;
constexpr std::size_t kNonceBytes = 12;

[[noreturn]] void fail(const std::string& text) {
    throw CException(text);
}

[[noreturn]] void failWithErrno(const std::string& text, int error) {
    throw CException(text + ": " + std::strerror(error));
}

void requireCrypto(bool ok, const char* what) {
    if (!ok) {
        fail(std::string("the cryptographic library failed at ") + what);
    }
}

using CipherContext = FreedBy<EVP_CIPHER_CTX, EVP_CIPHER_CTX_free>;
using Kdf = FreedBy<EVP_KDF, EVP_KDF_free>;
using KdfContext = FreedBy<EVP_KDF_CTX, EVP_KDF_CTX_free>;

void putNumber(std::string& bytes, std::uint64_t value, int width) {
    for (int shift = (width - 1) * 8; shift >= 0; shift -= 8) {
        bytes.push_back(static_cast<char>((value >> shift) & 0xff));
    }
}

std::uint64_t takeNumber(const unsigned char* bytes, int width) {
    std::uint64_t value = 0;
    for (int i = 0; i < width; ++i) {
        value = (value << 8) | bytes[i];
    }
    return value;
}

// Reads up to size bytes, as many as there are.
std::size_t readAt(int fd, void* bytes, std::size_t size, std::uint64_t offset) {
    const ssize_t got = Posix::readAllAt(fd, bytes, size, static_cast<off_t>(offset));
    if (got < 0) {
        failWithErrno("cannot read", errno);
    }
    return static_cast<std::size_t>(got);
}

void writeAll(int fd, const void* bytes, std::size_t size) {
    if (!Posix::writeAll(fd, {static_cast<const char*>(bytes), size})) {
        failWithErrno("cannot write", errno);
    }
}

struct stat statRegular(int fd, const std::string& name) {
    struct stat info {};
    if (::fstat(fd, &info) != 0) {
        failWithErrno(name + ": cannot be examined", errno);
    }
    if (!S_ISREG(info.st_mode)) {
        fail(name + ": not a regular file");
    }
    return info;
}

std::string baseName(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// The destructor wipes the plain text.
class SecretBuffer {
public:
    explicit SecretBuffer(std::size_t size) : bytes(size) {}
    SecretBuffer(const SecretBuffer&) = delete;
    SecretBuffer& operator=(const SecretBuffer&) = delete;
    ~SecretBuffer() { OPENSSL_cleanse(bytes.data(), bytes.size()); }
    unsigned char* data() { return bytes.data(); }
    std::size_t size() const { return bytes.size(); }

private:
    std::vector<unsigned char> bytes;
};

// Seals or opens the chunks of one package.
class ChunkCipher {
public:
    ChunkCipher(const ToolKey& toolKey, const PackageHeader& header)
        : headerBytes(encodeHeader(header)), context(EVP_CIPHER_CTX_new()) {
        requireCrypto(context != nullptr, "AES-256-GCM");
        SecretBuffer secret(kKeyBytes + kNoncePrefixBytes);
        derive(toolKey, header, secret);
        std::copy_n(secret.data() + kKeyBytes, kNoncePrefixBytes, nonce.begin());
        // The key is set once; each chunk then sets only its nonce.
        requireCrypto(EVP_CipherInit_ex(context.get(), EVP_aes_256_gcm(), nullptr, secret.data(),
                                        nullptr, 1) == 1,
                      "AES-256-GCM");
    }

    // out: size bytes and the tag.
    void seal(std::uint64_t number, bool last, const unsigned char* plain, std::size_t size,
              unsigned char* out) {
        begin(number, last, 1);
        int length = 0;
        requireCrypto(update(out, &length, plain, size), "sealing");
        requireCrypto(EVP_CipherFinal_ex(context.get(), out + size, &length) == 1, "sealing");
        requireCrypto(
            EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_AEAD_GET_TAG, kTagBytes, out + size) == 1,
            "sealing");
    }

    // sealed: size bytes and the tag. False when the chunk is not authentic; out is then garbage.
    bool open(std::uint64_t number, bool last, unsigned char* sealed, std::size_t size,
              unsigned char* out) {
        begin(number, last, 0);
        int length = 0;
        requireCrypto(EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_AEAD_SET_TAG, kTagBytes,
                                          sealed + size) == 1,
                      "opening");
        return update(out, &length, sealed, size) &&
               EVP_CipherFinal_ex(context.get(), out + size, &length) == 1;
    }

private:
    static void derive(const ToolKey& toolKey, const PackageHeader& header, SecretBuffer& secret) {
        const Kdf kdf(EVP_KDF_fetch(nullptr, "HKDF", nullptr));
        requireCrypto(kdf != nullptr, "HKDF");
        const KdfContext deriver(EVP_KDF_CTX_new(kdf.get()));
        requireCrypto(deriver != nullptr, "HKDF");
        std::string info = encodeHeader(header);
        std::array<unsigned char, kKeyBytes> input{};
        std::copy_n(toolKey.data(), kKeyBytes, input.begin());
        std::array<unsigned char, kSaltBytes> salt = header.salt;
        char digest[] = "SHA256";
        const OSSL_PARAM parameters[] = {
            OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, digest, 0),
            OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_KEY, input.data(), input.size()),
            OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_SALT, salt.data(), salt.size()),
            OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_INFO, info.data(), info.size()),
            OSSL_PARAM_construct_end()};
        const int derived = EVP_KDF_derive(deriver.get(), secret.data(), secret.size(), parameters);
        OPENSSL_cleanse(input.data(), input.size());
        requireCrypto(derived == 1, "HKDF");
    }

    void begin(std::uint64_t number, bool last, int encrypt) {
        for (std::size_t i = 0; i < 4; ++i) {
            nonce[kNoncePrefixBytes + i] = static_cast<unsigned char>(number >> (24 - 8 * i));
        }
        nonce[kNonceBytes - 1] = last ? 1 : 0;
        int length = 0;
        requireCrypto(
            EVP_CipherInit_ex(context.get(), nullptr, nullptr, nullptr, nonce.data(), encrypt) == 1,
            "AES-256-GCM");
        requireCrypto(EVP_CipherUpdate(context.get(), nullptr, &length,
                                       reinterpret_cast<const unsigned char*>(headerBytes.data()),
                                       static_cast<int>(headerBytes.size())) == 1,
                      "AES-256-GCM");
    }

    bool update(unsigned char* out, int* length, const unsigned char* in, std::size_t size) {
        return size == 0 ||
               EVP_CipherUpdate(context.get(), out, length, in, static_cast<int>(size)) == 1;
    }

    std::string headerBytes;
    std::array<unsigned char, kNonceBytes> nonce{};
    CipherContext context;
};

// Room for the largest chunk of this package; most tools are small.
std::size_t bufferBytes(const PackageHeader& header) {
    return static_cast<std::size_t>(std::clamp<std::uint64_t>(header.plainSize, 1, kChunkBytes));
}

// Opens every chunk in order. A chunk goes to outFd (unless that is -1) after it was found
// authentic.
void openChunks(int packageFd, const PackageHeader& header, const ToolKey& key, int outFd) {
    ChunkCipher cipher(key, header);
    std::vector<unsigned char> sealed(bufferBytes(header) + kTagBytes);
    SecretBuffer plain(bufferBytes(header));
    std::uint64_t offset = encodeHeader(header).size();
    std::uint64_t left = header.plainSize;
    const std::uint64_t chunks = header.chunks();
    for (std::uint64_t number = 0; number < chunks; ++number) {
        const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(left, kChunkBytes));
        if (readAt(packageFd, sealed.data(), size + kTagBytes, offset) != size + kTagBytes) {
            fail("cut short in chunk " + std::to_string(number + 1) + " of " +
                 std::to_string(chunks));
        }
        if (!cipher.open(number, number + 1 == chunks, sealed.data(), size, plain.data())) {
            fail("does not verify (chunk " + std::to_string(number + 1) + " of " +
                 std::to_string(chunks) + "): it was changed, or packed with another key");
        }
        if (outFd >= 0) {
            writeAll(outFd, plain.data(), size);
        }
        offset += size + kTagBytes;
        left -= size;
    }
    unsigned char extra = 0;
    if (readAt(packageFd, &extra, 1, offset) != 0) {
        fail("holds bytes after its last chunk");
    }
}

void check(int packageFd, const std::string& expectedToolName, const ToolKey& key, int outFd) {
    const std::string name = "package \"" + expectedToolName + kSuffix + "\"";
    const struct stat info = statRegular(packageFd, name);
    try {
        const PackageHeader header = readHeader(packageFd);
        if (header.toolName != expectedToolName) {
            fail("was made for the tool \"" + header.toolName + "\"");
        }
        // Checked before any work: with a wrong size nothing needs to be deciphered.
        if (static_cast<std::uint64_t>(info.st_size) != header.packageSize()) {
            fail("has " + std::to_string(info.st_size) + " bytes instead of " +
                 std::to_string(header.packageSize()));
        }
        openChunks(packageFd, header, key, outFd);
    } catch (const CException& fault) {
        fail(name + ": " + fault.getErrMsg());
    }
}

void sealFile(int toolFd, std::uint64_t size, PackageHeader& header, const ToolKey& key,
              int outFd) {
    requireCrypto(RAND_bytes(header.salt.data(), static_cast<int>(header.salt.size())) == 1,
                  "random numbers");
    ChunkCipher cipher(key, header);
    const std::string headerBytes = encodeHeader(header);
    writeAll(outFd, headerBytes.data(), headerBytes.size());
    SecretBuffer plain(bufferBytes(header));
    std::vector<unsigned char> sealed(bufferBytes(header) + kTagBytes);
    const std::uint64_t chunks = header.chunks();
    std::uint64_t offset = 0;
    for (std::uint64_t number = 0; number < chunks; ++number) {
        const auto wanted =
            static_cast<std::size_t>(std::min<std::uint64_t>(size - offset, kChunkBytes));
        if (readAt(toolFd, plain.data(), wanted, offset) != wanted) {
            fail("became shorter while it was read");
        }
        cipher.seal(number, number + 1 == chunks, plain.data(), wanted, sealed.data());
        writeAll(outFd, sealed.data(), wanted + kTagBytes);
        offset += wanted;
    }
    unsigned char extra = 0;
    if (readAt(toolFd, &extra, 1, offset) != 0) {
        fail("became longer while it was read");
    }
}

// A file that replaces another when it is complete, and is removed when it is not.
class Replacement {
public:
    explicit Replacement(const std::string& path) : target(path), name(path + ".XXXXXX") {
        fd.reset(::mkostemp(name.data(), O_CLOEXEC));
        if (!fd) {
            failWithErrno("cannot create a file beside \"" + target + "\"", errno);
        }
    }
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;
    ~Replacement() {
        if (!name.empty() && ::unlink(name.c_str()) != 0) {
            // A failure cannot be handled here; the file is of no use to anybody.
            errno = 0;
        }
    }

    int get() const { return fd.get(); }

    void commit() {
        if (::fchmod(fd.get(), 0644) != 0 || ::fsync(fd.get()) != 0 ||
            ::rename(name.c_str(), target.c_str()) != 0) {
            failWithErrno("cannot write \"" + target + "\"", errno);
        }
        name.clear();
    }

private:
    std::string target;
    std::string name;
    UniqueFd fd;
};

}  // namespace

ToolKey::ToolKey(const std::string& bytes) {
    if (bytes.size() != kKeyBytes) {
        fail("a tool key has " + std::to_string(kKeyBytes) + " bytes, not " +
             std::to_string(bytes.size()));
    }
    std::copy(bytes.begin(), bytes.end(), key.begin());
}

ToolKey::~ToolKey() {
    OPENSSL_cleanse(key.data(), key.size());
}

ToolKey ToolKey::load(const std::string& path) {
    const std::string name = "tool key \"" + path + "\"";
    // Non-blocking, so that a FIFO under this name is refused and not waited for.
    const UniqueFd fd = Posix::open(path, O_RDONLY | O_NONBLOCK);
    if (!fd) {
        failWithErrno(name + ": cannot be opened", errno);
    }
    const struct stat info = statRegular(fd.get(), name);
    if (info.st_uid != ::geteuid() && info.st_uid != 0) {
        fail(name + ": belongs to another user");
    }
    if ((info.st_mode & 077) != 0) {
        fail(name + ": others may read or change it; its mode must be 0600");
    }
    std::string bytes(kKeyBytes + 1, '\0');
    const std::size_t got = readAt(fd.get(), bytes.data(), bytes.size(), 0);
    if (got != kKeyBytes) {
        fail(name + ": must hold exactly " + std::to_string(kKeyBytes) + " bytes");
    }
    bytes.resize(kKeyBytes);
    ToolKey loaded(bytes);
    OPENSSL_cleanse(bytes.data(), bytes.size());
    return loaded;
}

void ToolKey::createFile(const std::string& path) {
    const UniqueFd fd = Posix::open(path, O_WRONLY | O_CREAT | O_EXCL, 0600);
    if (!fd) {
        failWithErrno("tool key \"" + path + "\": cannot be created", errno);
    }
    try {
        SecretBuffer bytes(kKeyBytes);
        requireCrypto(RAND_priv_bytes(bytes.data(), static_cast<int>(kKeyBytes)) == 1,
                      "random numbers");
        writeAll(fd.get(), bytes.data(), bytes.size());
        if (::fsync(fd.get()) != 0) {
            failWithErrno("cannot write", errno);
        }
    } catch (const CException& fault) {
        // Half a key is worse than none.
        if (::unlink(path.c_str()) != 0) {
            fail("tool key \"" + path + "\": " + fault.getErrMsg() + "; remove the broken file");
        }
        fail("tool key \"" + path + "\": " + fault.getErrMsg());
    }
}

std::uint64_t PackageHeader::chunks() const {
    return plainSize == 0 ? 1 : (plainSize + kChunkBytes - 1) / kChunkBytes;
}

std::uint64_t PackageHeader::packageSize() const {
    return kFixedHeaderBytes + toolName.size() + plainSize + chunks() * kTagBytes;
}

bool isToolName(const std::string& name) {
    static const char kAllowed[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_.+-";
    return !name.empty() && name.size() <= kMaxNameBytes && name[0] != '.' && name[0] != '-' &&
           name.find_first_not_of(kAllowed) == std::string::npos;
}

std::string toolNameOf(const std::string& packageName) {
    const std::size_t suffix = std::strlen(kSuffix);
    std::string name;
    if (packageName.size() > suffix &&
        packageName.compare(packageName.size() - suffix, suffix, kSuffix) == 0) {
        name = packageName.substr(0, packageName.size() - suffix);
    }
    if (!isToolName(name)) {
        fail("\"" + packageName + "\" is not the name of a package (<tool>" + kSuffix + ")");
    }
    return name;
}

std::string encodeHeader(const PackageHeader& header) {
    std::string bytes(kMagic.begin(), kMagic.end());
    putNumber(bytes, kVersion, 2);
    putNumber(bytes, header.toolName.size(), 2);
    putNumber(bytes, header.plainSize, 8);
    bytes.append(header.salt.begin(), header.salt.end());
    return bytes + header.toolName;
}

PackageHeader decodeHeader(const unsigned char* bytes, std::size_t size) {
    if (size < kMagic.size() || !std::equal(kMagic.begin(), kMagic.end(), bytes)) {
        fail("is not a packaged tool");
    }
    if (size < kFixedHeaderBytes) {
        fail("cut short in its header");
    }
    const std::uint64_t version = takeNumber(bytes + 8, 2);
    if (version != kVersion) {
        fail("has format version " + std::to_string(version) + "; only version " +
             std::to_string(kVersion) + " is known");
    }
    const auto nameLength = static_cast<std::size_t>(takeNumber(bytes + 10, 2));
    PackageHeader header;
    header.plainSize = takeNumber(bytes + 12, 8);
    std::copy_n(bytes + 20, kSaltBytes, header.salt.begin());
    if (header.plainSize > kMaxPlainBytes || nameLength > kMaxNameBytes) {
        fail("has a damaged header");
    }
    if (size - kFixedHeaderBytes < nameLength) {
        fail("cut short in its header");
    }
    header.toolName.assign(bytes + kFixedHeaderBytes, bytes + kFixedHeaderBytes + nameLength);
    if (!isToolName(header.toolName)) {
        fail("has a damaged header");
    }
    return header;
}

PackageHeader readHeader(int packageFd) {
    std::array<unsigned char, kFixedHeaderBytes + kMaxNameBytes> bytes{};
    return decodeHeader(bytes.data(), readAt(packageFd, bytes.data(), bytes.size(), 0));
}

void pack(const std::string& toolPath, const ToolKey& key, const std::string& outPath) {
    const std::string name = "tool \"" + toolPath + "\"";
    PackageHeader header;
    header.toolName = baseName(toolPath);
    if (!isToolName(header.toolName)) {
        fail(name + ": the name of a tool may hold letters, digits and \"_.+-\", must not begin " +
             "with \".\" or \"-\", and has at most " + std::to_string(kMaxNameBytes) + " bytes");
    }
    const UniqueFd tool = Posix::open(toolPath, O_RDONLY | O_NONBLOCK);
    if (!tool) {
        failWithErrno(name + ": cannot be opened", errno);
    }
    const struct stat info = statRegular(tool.get(), name);
    header.plainSize = static_cast<std::uint64_t>(info.st_size);
    if (header.plainSize > kMaxPlainBytes) {
        fail(name + ": is too large");
    }
    Replacement package(outPath);
    try {
        sealFile(tool.get(), header.plainSize, header, key, package.get());
    } catch (const CException& fault) {
        fail(name + ": " + fault.getErrMsg());
    }
    package.commit();
}

void unpack(int packageFd, const std::string& expectedToolName, const ToolKey& key, int outFd) {
    try {
        check(packageFd, expectedToolName, key, outFd);
    } catch (const CException&) {
        if (::ftruncate(outFd, 0) != 0) {
            failWithErrno("cannot empty the file of a tool that did not verify", errno);
        }
        throw;
    }
}

void verify(int packageFd, const std::string& expectedToolName, const ToolKey& key) {
    check(packageFd, expectedToolName, key, -1);
}

}  // namespace toolpackage
