#pragma once

#include <string>

#include <openssl/evp.h>
#include <openssl/x509.h>

#include "FreedBy.h"
#include "TlsContext.h"

// Certificates that no sane authority would issue, and those it would, as objects and as PEM files.
namespace issuer {

struct Identity {
    FreedBy<EVP_PKEY, EVP_PKEY_free> key;
    FreedBy<X509, X509_free> certificate;
};

struct Wish {
    std::string commonName = "master";
    std::string usage = "clientAuth";  // extended key usage; empty: none
    std::string alternatives;          // as "IP:127.0.0.1,DNS:node"; empty: none
    bool isAuthority = false;
    long fromSeconds = -3600;  // from now
    long untilSeconds = 24L * 3600;
    int rsaBits = 0;  // 0: P-256
    const char* digest = "SHA256";
    long serial = 0;  // 0: one of its own
};

// Signed by the issuer, or by itself where there is none. Throws std::runtime_error.
Identity make(const Wish& wish, const Identity* by = nullptr);

std::string pem(const Identity& identity);
std::string keyPem(const Identity& identity);

// Writes DIRECTORY/NAME.pem: the certificate, what is given as the rest, and the key.
TlsFiles write(const std::string& directory, const std::string& name, const Identity& identity,
               const std::string& rest);

// Writes DIRECTORY/crl.pem: one certificate of the authority is revoked.
void revoke(const std::string& directory, const Identity& authority, const Identity& revoked,
            long untilSeconds = 3600);

}  // namespace issuer
