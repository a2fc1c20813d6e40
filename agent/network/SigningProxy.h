#pragma once

#include <functional>
#include <string>

#include <openssl/ssl.h>

// A TLS context whose private key is in another process.
namespace signingproxy {

// Returns the signature of the handshake in progress, or throws CException.
using Signer = std::function<std::string()>;

// Puts a stand-in for the context's private key in its place, which asks the signer; the context
// then refers to the key no more. For EC and RSA keys. Throws CException.
void install(SSL_CTX* context);

// Who signs. The answer must be a signature of what a TLS 1.3 server signs: with RSA over SHA-256,
// with a curve over the digest that belongs to it. One signer per process, kept to its end.
void setSigner(Signer signer);

}  // namespace signingproxy
