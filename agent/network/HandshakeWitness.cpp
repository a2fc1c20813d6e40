#include "HandshakeWitness.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <ctime>
#include <limits>
#include <string_view>
#include <utility>
#include <vector>

#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include "CException.h"
#include "FreedBy.h"
#include "TlsFault.h"

namespace {

constexpr unsigned char kClientHello = 1;
constexpr unsigned char kServerHello = 2;
constexpr unsigned char kEncryptedExtensions = 8;
constexpr unsigned char kCertificate = 11;
constexpr unsigned char kCertificateRequest = 13;
constexpr unsigned char kCertificateVerify = 15;
constexpr unsigned char kFinished = 20;
constexpr char kMessageHash = static_cast<char>(254);
constexpr std::size_t kMessageHeaderBytes = 4;
constexpr std::size_t kRandomBytes = 32;
// What a server's greeting has in place of its random number when it only asks for another one of
// the client.
constexpr unsigned char kRetryRandom[kRandomBytes] = {
    0xcf, 0x21, 0xad, 0x74, 0xe5, 0x9a, 0x61, 0x11, 0xbe, 0x1d, 0x8c, 0x02, 0x1e, 0x65, 0xb8, 0x91,
    0xc2, 0xa2, 0x11, 0x16, 0x7a, 0xbb, 0x8c, 0x5e, 0x07, 0x9e, 0x09, 0xe2, 0xc8, 0xa8, 0x33, 0x9c};
constexpr char kServerContext[] = "TLS 1.3, server CertificateVerify";
constexpr char kClientContext[] = "TLS 1.3, client CertificateVerify";

using DigestContext = FreedBy<EVP_MD_CTX, EVP_MD_CTX_free>;

[[noreturn]] void refuse(const std::string& what) {
    ERR_clear_error();
    throw CException("the network process is not trusted: " + what);
}

// Takes numbers and byte strings off the front; refuses what is too short.
class Reader {
public:
    explicit Reader(std::string_view bytes) : rest(bytes) {}
    std::string_view take(std::size_t count) {
        if (count > rest.size()) {
            refuse("a handshake message ends too early");
        }
        const std::string_view taken = rest.substr(0, count);
        rest.remove_prefix(count);
        return taken;
    }
    std::size_t number(std::size_t bytes) {
        std::size_t value = 0;
        for (const char byte : take(bytes)) {
            value = value << 8U | static_cast<unsigned char>(byte);
        }
        return value;
    }
    std::string_view counted(std::size_t lengthBytes) { return take(number(lengthBytes)); }
    bool isEmpty() const { return rest.empty(); }
    void expectEnd() const {
        if (!rest.empty()) {
            refuse("a handshake message is too long");
        }
    }

private:
    std::string_view rest;
};

// Each whole, header included.
std::vector<std::string_view> split(std::string_view messages) {
    std::vector<std::string_view> all;
    if (messages.size() > HandshakeWitness::kMaxTranscriptBytes) {
        refuse("the handshake is too large");
    }
    while (!messages.empty()) {
        Reader reader(messages);
        reader.take(1);
        const std::size_t length = kMessageHeaderBytes + reader.number(3);
        if (length > messages.size()) {
            refuse("a handshake message ends too early");
        }
        all.push_back(messages.substr(0, length));
        messages.remove_prefix(length);
    }
    return all;
}

std::string typesOf(const std::vector<std::string_view>& messages) {
    std::string types;
    for (const std::string_view message : messages) {
        types += message[0];
    }
    return types;
}

std::string_view bodyOf(std::string_view message) {
    return message.substr(kMessageHeaderBytes);
}

bool isRetry(std::string_view serverHello) {
    Reader reader(bodyOf(serverHello));
    reader.take(2);
    return std::memcmp(reader.take(kRandomBytes).data(), kRetryRandom, kRandomBytes) == 0;
}

const EVP_MD* digestOf(std::string_view serverHello) {
    Reader reader(bodyOf(serverHello));
    reader.take(2 + kRandomBytes);
    reader.counted(1);
    switch (reader.number(2)) {
        case 0x1301:
        case 0x1303:
            return EVP_sha256();
        case 0x1302:
            return EVP_sha384();
        default:
            refuse("the cipher suite is unknown");
    }
}

std::string hash(const EVP_MD* digest, std::string_view bytes) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> value{};
    unsigned int length = 0;
    if (EVP_Digest(bytes.data(), bytes.size(), value.data(), &length, digest, nullptr) != 1) {
        refuse("a digest cannot be made");
    }
    return std::string(reinterpret_cast<const char*>(value.data()), length);
}

// The hash over the messages so far that TLS 1.3 signs.
std::string transcriptHash(const std::string& messages) {
    const std::vector<std::string_view> all = split(messages);
    if (!isRetry(all.at(1))) {
        return hash(digestOf(all.at(1)), messages);
    }
    // Of a greeting that was asked for anew only the hash counts.
    const EVP_MD* const digest = digestOf(all.at(1));
    const std::string first = hash(digest, all.at(0));
    std::string bytes{kMessageHash, '\0', '\0', static_cast<char>(first.size())};
    bytes += first;
    bytes.append(messages, all.at(0).size());
    return hash(digest, bytes);
}

std::string contentToSign(const char* context, const std::string& messages) {
    return std::string(64, ' ') + context + '\0' + transcriptHash(messages);
}

int curveOf(const EVP_PKEY* key) {
    char name[32] = "";
    std::size_t length = 0;
    if (EVP_PKEY_get_group_name(key, name, sizeof name, &length) != 1) {
        return NID_undef;
    }
    return OBJ_txt2nid(name);
}

struct Scheme {
    std::size_t number;
    int keyType;
    int curve;  // NID_undef: any key of the type
    const EVP_MD* (*digest)();
    bool isPss;
};

constexpr Scheme kSchemes[] = {
    {0x0403, EVP_PKEY_EC, NID_X9_62_prime256v1, &EVP_sha256, false},
    {0x0503, EVP_PKEY_EC, NID_secp384r1, &EVP_sha384, false},
    {0x0603, EVP_PKEY_EC, NID_secp521r1, &EVP_sha512, false},
    {0x0804, EVP_PKEY_RSA, NID_undef, &EVP_sha256, true},
    {0x0805, EVP_PKEY_RSA, NID_undef, &EVP_sha384, true},
    {0x0806, EVP_PKEY_RSA, NID_undef, &EVP_sha512, true},
    {0x0809, EVP_PKEY_RSA_PSS, NID_undef, &EVP_sha256, true},
    {0x080a, EVP_PKEY_RSA_PSS, NID_undef, &EVP_sha384, true},
    {0x080b, EVP_PKEY_RSA_PSS, NID_undef, &EVP_sha512, true},
    {0x0807, EVP_PKEY_ED25519, NID_undef, nullptr, false},
    {0x0808, EVP_PKEY_ED448, NID_undef, nullptr, false},
};

bool fits(const Scheme& scheme, const EVP_PKEY* key) {
    return scheme.keyType == EVP_PKEY_get_base_id(key) &&
           (scheme.curve == NID_undef || scheme.curve == curveOf(key));
}

bool usePss(EVP_PKEY_CTX* parameters) {
    return EVP_PKEY_CTX_set_rsa_padding(parameters, RSA_PKCS1_PSS_PADDING) == 1 &&
           EVP_PKEY_CTX_set_rsa_pss_saltlen(parameters, RSA_PSS_SALTLEN_DIGEST) == 1;
}

bool verifies(const Scheme& scheme, EVP_PKEY* key, const std::string& content,
              std::string_view signature) {
    const DigestContext verifier(EVP_MD_CTX_new());
    EVP_PKEY_CTX* parameters = nullptr;  // the verifier's
    const EVP_MD* const digest = scheme.digest != nullptr ? scheme.digest() : nullptr;
    return verifier &&
           EVP_DigestVerifyInit(verifier.get(), &parameters, digest, nullptr, key) == 1 &&
           (!scheme.isPss || usePss(parameters)) &&
           EVP_DigestVerify(
               verifier.get(), reinterpret_cast<const unsigned char*>(signature.data()),
               signature.size(), reinterpret_cast<const unsigned char*>(content.data()),
               content.size()) == 1;
}

std::string makeSignature(EVP_PKEY* key, const std::string& content) {
    for (const Scheme& scheme : kSchemes) {
        if (!fits(scheme, key)) {
            continue;
        }
        const DigestContext signer(EVP_MD_CTX_new());
        EVP_PKEY_CTX* parameters = nullptr;  // the signer's
        const EVP_MD* const digest = scheme.digest != nullptr ? scheme.digest() : nullptr;
        std::string made(static_cast<std::size_t>(EVP_PKEY_get_size(key)), '\0');
        std::size_t length = made.size();
        if (!signer || EVP_DigestSignInit(signer.get(), &parameters, digest, nullptr, key) != 1 ||
            (scheme.isPss && !usePss(parameters)) ||
            EVP_DigestSign(signer.get(), reinterpret_cast<unsigned char*>(&made[0]), &length,
                           reinterpret_cast<const unsigned char*>(content.data()),
                           content.size()) != 1) {
            break;
        }
        made.resize(length);
        return made;
    }
    refuse("the node's key cannot sign");
}

std::string fingerprintOf(const X509* certificate) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> value{};
    unsigned int length = 0;
    if (X509_digest(certificate, EVP_sha256(), value.data(), &length) != 1) {
        refuse("a digest cannot be made");
    }
    return std::string(reinterpret_cast<const char*>(value.data()), length);
}

std::time_t firstEndOf(const std::vector<TlsContext::Certificate>& certificates) {
    std::time_t first = std::numeric_limits<std::time_t>::max();
    for (const TlsContext::Certificate& certificate : certificates) {
        std::tm end{};
        if (ASN1_TIME_to_tm(X509_get0_notAfter(certificate.get()), &end) != 1) {
            refuse("the end of a certificate can not be read");
        }
        first = std::min(first, ::timegm(&end));
    }
    return first;
}

// The certificates of a Certificate message, DER one after the other.
std::string certificatesOf(std::string_view message) {
    Reader reader(bodyOf(message));
    if (!reader.counted(1).empty()) {
        refuse("the certificates answer something else");
    }
    Reader entries(reader.counted(3));
    reader.expectEnd();
    std::string all;
    while (!entries.isEmpty()) {
        all += entries.counted(3);
        entries.counted(2);
    }
    return all;
}

}  // namespace

HandshakeWitness::HandshakeWitness(std::shared_ptr<const TlsContext> ownContext)
    : context(std::move(ownContext)) {}

std::string HandshakeWitness::sign(const std::string& messages) {
    if (!signedMessages.empty()) {
        refuse("it wants a second signature");
    }
    static const std::string plain{kClientHello, kServerHello, kEncryptedExtensions,
                                   kCertificateRequest, kCertificate};
    static const std::string retried = std::string{kClientHello, kServerHello} + plain;
    const std::vector<std::string_view> all = split(messages);
    const std::string types = typesOf(all);
    const bool isRetried = types == retried;
    if (!isRetried && types != plain) {
        refuse("it wants a signature of something that is no handshake");
    }
    if (isRetry(all[1]) != isRetried || (isRetried && isRetry(all[3]))) {
        refuse("the greetings are out of order");
    }
    EVP_PKEY* const key = context->privateKey();
    signature = makeSignature(key, contentToSign(kServerContext, messages));
    signedMessages = messages;
    return signature;
}

HandshakeWitness::Master HandshakeWitness::prove(const std::string& messages,
                                                 const std::string& whose) const {
    static const std::string expected{kCertificateVerify, kFinished, kCertificate,
                                      kCertificateVerify};
    if (signedMessages.empty()) {
        refuse("it never asked for a signature");
    }
    const std::vector<std::string_view> all = split(messages);
    if (typesOf(all) != expected) {
        refuse("the proof is no handshake");
    }
    Reader own(bodyOf(all[0]));
    own.number(2);
    if (own.counted(2) != signature) {
        refuse("the proof is that of another handshake");
    }
    own.expectEnd();
    Master master;
    master.certificates = certificatesOf(all[2]);
    const std::vector<TlsContext::Certificate> certificates =
        TlsContext::parse(master.certificates);
    const X509* const certificate = certificates.empty() ? nullptr : certificates.front().get();
    EVP_PKEY* const key = certificate != nullptr ? X509_get0_pubkey(certificate) : nullptr;
    if (key == nullptr) {
        refuse("the master's certificate cannot be read");
    }
    Reader proof(bodyOf(all[3]));
    const std::size_t number = proof.number(2);
    const std::string_view shown = proof.counted(2);
    proof.expectEnd();
    const std::string content = contentToSign(
        kClientContext, signedMessages + messages.substr(0, messages.size() - all[3].size()));
    bool isProven = false;
    for (const Scheme& scheme : kSchemes) {
        isProven = isProven || (scheme.number == number && fits(scheme, key) &&
                                verifies(scheme, key, content, shown));
    }
    if (!isProven) {
        refuse("the master's signature does not fit");
    }
    const std::string refusal = context->refusalOf(certificates, whose, master.name);
    if (!refusal.empty()) {
        throw CException(refusal);
    }
    master.subject = tlsfault::subject(certificate);
    master.fingerprint = fingerprintOf(certificate);
    master.validUntil = firstEndOf(certificates);
    return master;
}
