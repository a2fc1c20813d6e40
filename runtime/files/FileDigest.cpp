#include "FileDigest.h"

#include "CException.h"
#include "Text.h"

namespace {

// Looked up once for all digests; if that failed, by each digest again. Never freed, since threads
// may outlive main.
const EVP_MD* sha256() {
    static const EVP_MD* const found = EVP_MD_fetch(nullptr, "SHA256", nullptr);
    return found != nullptr ? found : EVP_sha256();
}

}  // namespace

FileDigest::FileDigest() : context(EVP_MD_CTX_new()) {
    if (!context || EVP_DigestInit_ex2(context.get(), sha256(), nullptr) != 1) {
        throw CException("cannot set up a SHA-256 digest");
    }
}

void FileDigest::update(const void* bytes, std::size_t length) {
    if (EVP_DigestUpdate(context.get(), bytes, length) != 1) {
        throw CException("cannot calculate a SHA-256 digest");
    }
}

std::string FileDigest::finish() {
    unsigned char raw[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_DigestFinal_ex(context.get(), raw, &length) != 1) {
        throw CException("cannot calculate a SHA-256 digest");
    }
    return std::string(reinterpret_cast<const char*>(raw), length);
}

std::string FileDigest::toHex(const std::string& raw) {
    std::string text;
    for (const char byte : raw) {
        Text::appendHex(text, byte);
    }
    return text;
}

std::string FileDigest::shortHex(const std::string& raw) {
    return toHex(raw.substr(0, 8));
}
