#include "SigningProxy.h"

#include <algorithm>
#include <utility>

#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include "CException.h"
#include "FreedBy.h"
#include "TlsFault.h"

// Methods of keys are the only way into a key that needs no provider of its own; the library calls
// them deprecated, and serves them.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace signingproxy {
namespace {

using Key = FreedBy<EVP_PKEY, EVP_PKEY_free>;

Signer& theSigner() {
    // Never destroyed: the key that asks it lives as long as the process.
    static auto* signer = new Signer;
    return *signer;
}

// The length, or 0. Called from within the library, which knows no exceptions.
std::size_t ask(unsigned char* target, std::size_t room) noexcept {
    try {
        const std::string signature = theSigner()();
        if (signature.empty() || signature.size() > room) {
            return 0;
        }
        std::copy(signature.begin(), signature.end(), target);
        return signature.size();
    } catch (const std::exception&) {
        return 0;
    }
}

int signWithCurve(int /*type*/, const unsigned char* /*digest*/, int /*digestLength*/,
                  unsigned char* signature, unsigned int* length, const BIGNUM* /*inverse*/,
                  const BIGNUM* /*point*/, EC_KEY* key) {
    *length = static_cast<unsigned int>(ask(signature, static_cast<std::size_t>(ECDSA_size(key))));
    return *length > 0 ? 1 : 0;
}

int signWithRsa(int /*count*/, const unsigned char* /*padded*/, unsigned char* signature, RSA* key,
                int /*padding*/) {
    const auto size = static_cast<std::size_t>(RSA_size(key));
    return ask(signature, size) == size ? static_cast<int>(size) : -1;
}

// Never destroyed: keys refer to them.
const EC_KEY_METHOD* curveMethod() {
    static EC_KEY_METHOD* const method = [] {
        EC_KEY_METHOD* const own = EC_KEY_METHOD_new(EC_KEY_OpenSSL());
        if (own != nullptr) {
            EC_KEY_METHOD_set_sign(own, &signWithCurve, nullptr, nullptr);
        }
        return own;
    }();
    return method;
}

const RSA_METHOD* rsaMethod() {
    static RSA_METHOD* const method = [] {
        RSA_METHOD* const own = RSA_meth_dup(RSA_PKCS1_OpenSSL());
        if (own != nullptr) {
            RSA_meth_set_priv_enc(own, &signWithRsa);
        }
        return own;
    }();
    return method;
}

Key standInOfCurve(const EVP_PKEY* known) {
    const EC_KEY_METHOD* const method = curveMethod();
    const EC_KEY* const source = EVP_PKEY_get0_EC_KEY(known);
    EC_KEY* const copy = source != nullptr ? EC_KEY_dup(source) : nullptr;
    Key key(EVP_PKEY_new());
    if (method == nullptr || copy == nullptr || !key) {
        EC_KEY_free(copy);
        return nullptr;
    }
    if (EC_KEY_set_method(copy, method) != 1 || EVP_PKEY_assign_EC_KEY(key.get(), copy) != 1) {
        EC_KEY_free(copy);
        return nullptr;
    }
    return key;
}

Key standInOfRsa(const EVP_PKEY* known) {
    const RSA_METHOD* const method = rsaMethod();
    const RSA* const source = EVP_PKEY_get0_RSA(known);
    RSA* const copy = source != nullptr ? RSAPublicKey_dup(source) : nullptr;
    Key key(EVP_PKEY_new());
    if (method == nullptr || copy == nullptr || !key || RSA_set_method(copy, method) != 1 ||
        EVP_PKEY_assign_RSA(key.get(), copy) != 1) {
        RSA_free(copy);
        return nullptr;
    }
    return key;
}

}  // namespace

void install(SSL_CTX* context) {
    const EVP_PKEY* const known = X509_get0_pubkey(SSL_CTX_get0_certificate(context));
    Key key;
    switch (known != nullptr ? EVP_PKEY_get_base_id(known) : EVP_PKEY_NONE) {
        case EVP_PKEY_EC:
            key = standInOfCurve(known);
            break;
        case EVP_PKEY_RSA:
            key = standInOfRsa(known);
            break;
        default:
            throw CException("the node's key is neither EC nor RSA");
    }
    // The digest of an RSA signature would be the client's choice, and the signer is not told.
    if (!key ||
        (EVP_PKEY_get_base_id(known) == EVP_PKEY_RSA &&
         (SSL_CTX_set1_client_sigalgs_list(
              context,
              "ECDSA+SHA256:ECDSA+SHA384:ECDSA+SHA512:ed25519:ed448:rsa_pss_pss_sha256:"
              "rsa_pss_pss_sha384:rsa_pss_pss_sha512:rsa_pss_rsae_sha256:rsa_pss_rsae_sha384:"
              "rsa_pss_rsae_sha512") != 1 ||
          SSL_CTX_set1_sigalgs_list(context, "rsa_pss_rsae_sha256") != 1)) ||
        SSL_CTX_use_PrivateKey(context, key.get()) != 1) {
        throw CException("the node's key cannot be kept apart: " + tlsfault::lastReason());
    }
}

void setSigner(Signer signer) {
    theSigner() = std::move(signer);
}

}  // namespace signingproxy
