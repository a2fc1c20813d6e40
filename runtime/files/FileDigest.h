#pragma once

#include <string>

#include <openssl/evp.h>

#include "FreedBy.h"

// Calculates the SHA-256 of bytes that arrive in pieces. Movable, not copyable; used by one thread
// at a time.
class FileDigest {
public:
    // Throws CException when the digest cannot be set up.
    FileDigest();

    void update(const void* bytes, std::size_t length);
    // The 32 raw bytes. Ends the calculation: call it once, after the last update.
    std::string finish();

    static std::string toHex(const std::string& raw);
    // The first 16 hexadecimal digits: enough for a person to compare two copies.
    static std::string shortHex(const std::string& raw);

private:
    FreedBy<EVP_MD_CTX, EVP_MD_CTX_free> context;
};
