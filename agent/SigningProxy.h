#pragma once

#include <functional>
#include <string>

#include <openssl/ssl.h>

// A TLS context whose private key is in another process.
namespace signingproxy {

// Returns the signature of the handshake in progress, or throws CException.
using Signer = std::function<std::string()>;

// Puts a stand-in for the context's private key in its place, which frees and wipes the key: where
// nobody else in this process refers to it, it is gone. The stand-in asks the signer, whose answer
// must be a signature of what a TLS 1.3 server signs: with RSA over SHA-256, with a curve over the
// digest that belongs to it. For EC and RSA keys. One signer per process, kept to its end. Throws
// CException.
void install(SSL_CTX* context, Signer signer);

}  // namespace signingproxy
