#include "TlsContext.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include "CException.h"
#include "CertificateExpiry.h"
#include "FreedBy.h"
#include "Posix.h"
#include "Protocol.h"
#include "Text.h"
#include "TlsFault.h"
#include "UniqueFd.h"

namespace {

constexpr off_t kMaxPemBytes = off_t{4} * 1024 * 1024;
constexpr char kGroups[] = "P-256";
// Several records for each system call. Held only while bytes are coming; small enough that the
// allocator does not fetch it from the kernel each time.
constexpr std::size_t kReadBufferBytes = std::size_t{96} * 1024;
constexpr char kCipherSuites[] =
    "TLS_AES_128_GCM_SHA256:TLS_AES_256_GCM_SHA384:TLS_CHACHA20_POLY1305_SHA256";

struct StackDeleter {
    void operator()(STACK_OF(X509) * doomed) const { sk_X509_free(doomed); }
};
using Bio = FreedBy<BIO, BIO_free>;
using Certificate = TlsContext::Certificate;
using PrivateKey = TlsContext::PrivateKey;

[[noreturn]] void failed(const std::string& what) {
    throw CException(what + ": " + tlsfault::lastReason() + ".");
}

// The text of a PEM file. It may hold a private key: wiped when done with.
class PemText {
public:
    explicit PemText(const std::string& file) {
        const UniqueFd fd = Posix::open(file, O_RDONLY | O_NONBLOCK | O_NOCTTY);
        struct stat found {};
        if (!fd || fstat(fd.get(), &found) != 0) {
            unreadable(file, std::strerror(errno));
        }
        if (!S_ISREG(found.st_mode) || found.st_size > kMaxPemBytes) {
            unreadable(file, "not a PEM file");
        }
        text.resize(static_cast<std::size_t>(found.st_size));
        const ssize_t have = Posix::readAll(fd.get(), text.data(), text.size());
        if (have < 0) {
            unreadable(file, std::strerror(errno));
        }
        text.resize(static_cast<std::size_t>(have));
    }
    PemText(const PemText&) = delete;
    PemText& operator=(const PemText&) = delete;
    ~PemText() { OPENSSL_cleanse(&text[0], text.size()); }

    Bio bio() const {
        Bio memory(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
        if (!memory) {
            failed("Cannot read a PEM file");
        }
        return memory;
    }

private:
    [[noreturn]] static void unreadable(const std::string& file, const std::string& reason) {
        throw CException("Cannot read the certificate or key file \"" + file + "\": " + reason +
                         ".");
    }

    std::string text;
};

// Never asks on the terminal for a pass phrase.
int refusePassPhrase(char* /*buffer*/, int /*size*/, int /*writing*/, void* asked) {
    *static_cast<bool*>(asked) = true;
    return -1;
}

std::string derOf(const X509* certificate) {
    unsigned char* bytes = nullptr;
    const int count = i2d_X509(certificate, &bytes);
    if (count < 0) {
        failed("Cannot hand on a certificate");
    }
    std::string der(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(count));
    OPENSSL_free(bytes);
    return der;
}

std::vector<Certificate> readCertificates(const PemText& text, const std::string& file) {
    std::vector<Certificate> certificates;
    const Bio bio = text.bio();
    ERR_clear_error();
    while (X509* next = PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr)) {
        certificates.emplace_back(next);
    }
    if (ERR_GET_REASON(ERR_peek_last_error()) != PEM_R_NO_START_LINE) {
        failed("The certificate file \"" + file + "\" is damaged");
    }
    ERR_clear_error();
    if (certificates.empty()) {
        throw CException("The certificate file \"" + file + "\" holds no certificate.");
    }
    return certificates;
}

PrivateKey readKey(const PemText& text, std::string* problem) {
    bool asked = false;
    const Bio bio = text.bio();
    ERR_clear_error();
    PrivateKey key(PEM_read_bio_PrivateKey(bio.get(), nullptr, &refusePassPhrase, &asked));
    if (!key) {
        *problem = asked ? "is protected by a pass phrase" : "holds no private key";
    }
    ERR_clear_error();
    return key;
}

const std::string& alpnList() {
    // Each name of the list stands behind its length.
    static const std::string list =
        std::string(1, static_cast<char>(sizeof protocol::kAlpn - 1)) + protocol::kAlpn;
    return list;
}

int selectAlpn(SSL* /*ssl*/, const unsigned char** selected, unsigned char* selectedLength,
               const unsigned char* offered, unsigned int offeredLength, void* /*unused*/) {
    const std::string& ours = alpnList();
    unsigned char* found = nullptr;
    if (SSL_select_next_proto(&found, selectedLength,
                              reinterpret_cast<const unsigned char*>(ours.data()),
                              static_cast<unsigned int>(ours.size()), offered,
                              offeredLength) != OPENSSL_NPN_NEGOTIATED) {
        return SSL_TLSEXT_ERR_ALERT_FATAL;
    }
    *selected = found;
    return SSL_TLSEXT_ERR_OK;
}

}  // namespace

// What stands in the files, before it is given to OpenSSL.
struct TlsContext::Material {
    std::vector<Certificate> chain;  // the own certificate, then those behind it
    std::vector<Certificate> authorities;
    PrivateKey key;

    explicit Material(const TlsFiles& source) {
        if (source.certificateFile.empty()) {
            throw CException(
                "No certificate file is configured: the TLS connection to a node"
                " needs CERTIFICATE_FILE.");
        }
        const PemText text(source.certificateFile);
        chain = readCertificates(text, source.certificateFile);
        readPrivateKey(source, text);
        if (!source.caFile.empty()) {
            authorities = readCertificates(PemText(source.caFile), source.caFile);
        } else {
            for (std::size_t i = 1; i < chain.size(); ++i) {
                X509_up_ref(chain[i].get());
                authorities.emplace_back(chain[i].get());
            }
        }
        if (authorities.empty()) {
            throw CException("The certificate file \"" + source.certificateFile +
                             "\" holds no CA certificate after its first certificate: there would"
                             " be nobody to trust.");
        }
    }

private:
    bool fits() const { return key && X509_check_private_key(chain.front().get(), key.get()) == 1; }

    // The key file first; a key inside the certificate file serves where that one does not.
    void readPrivateKey(const TlsFiles& source, const PemText& certificateText) {
        std::string problem;
        const bool separate = !source.privateKeyFile.empty();
        if (separate) {
            try {
                key = readKey(PemText(source.privateKeyFile), &problem);
            } catch (const CException& unreadable) {
                problem = unreadable.getErrMsg();
            }
            if (key && !fits()) {
                problem =
                    "does not belong to the certificate in \"" + source.certificateFile + "\"";
            }
            if (fits()) {
                return;
            }
        }
        std::string insideProblem;
        key = readKey(certificateText, &insideProblem);
        if (fits()) {
            return;
        }
        ERR_clear_error();
        if (!separate) {
            problem = key ? "holds a private key that does not belong to its first certificate"
                          : insideProblem;
        }
        const std::string& named = separate ? source.privateKeyFile : source.certificateFile;
        throw CException(Text::startsWith(problem, "Cannot")
                             ? problem
                             : "The file \"" + named + "\" " + problem + ".");
    }
};

std::shared_ptr<TlsContext> TlsContext::client(const TlsFiles& files) {
    return std::shared_ptr<TlsContext>(new TlsContext(files, false));
}

std::shared_ptr<TlsContext> TlsContext::server(const TlsFiles& files) {
    return std::shared_ptr<TlsContext>(new TlsContext(files, true));
}

TlsContext::TlsContext(const TlsFiles& givenFiles, bool server)
    : files(givenFiles), serverSide(server) {
    Material material(files);
    makeEmpty();
    useMaterial(material);
    key = std::move(material.key);
    useRevocationList();
}

TlsContext::TlsContext(const std::vector<std::string>& parts)
    : files{parts.at(0), "", ""}, serverSide(true) {
    makeEmpty();
    useShown(TlsContext::parse(parts.at(1)));
    useTrusted(TlsContext::parse(parts.at(2)));
    if (!parts.at(3).empty()) {
        const Bio lists(BIO_new_mem_buf(parts.at(3).data(), static_cast<int>(parts.at(3).size())));
        useRevocationLists(lists.get(), "crl.pem");
    }
}

void TlsContext::makeEmpty() {
    ERR_clear_error();
    context.reset(SSL_CTX_new(serverSide ? TLS_server_method() : TLS_client_method()));
    if (!context) {
        failed("Cannot set up TLS");
    }
    configureCommon();
    if (serverSide) {
        configureServer();
    } else {
        configureClient();
    }
}

TlsContext::~TlsContext() = default;

void TlsContext::configureCommon() {
    SSL_CTX* ctx = context.get();
    if (SSL_CTX_set_min_proto_version(ctx, TLS1_3_VERSION) != 1 ||
        SSL_CTX_set_max_proto_version(ctx, TLS1_3_VERSION) != 1 ||
        SSL_CTX_set1_groups_list(ctx, kGroups) != 1 ||
        SSL_CTX_set_ciphersuites(ctx, kCipherSuites) != 1 ||
        SSL_CTX_set_max_early_data(ctx, 0) != 1) {
        failed("Cannot set up TLS 1.3");
    }
    SSL_CTX_set_mode(ctx, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER |
                              SSL_MODE_RELEASE_BUFFERS | SSL_MODE_NO_AUTO_CHAIN);
    SSL_CTX_set_read_ahead(ctx, 1);
    SSL_CTX_set_default_read_buffer_len(ctx, kReadBufferBytes);
}

void TlsContext::configureClient() {
    SSL_CTX* ctx = context.get();
    SSL_CTX_set_session_cache_mode(ctx, SSL_SESS_CACHE_OFF);
    const std::string& alpn = alpnList();
    // The one function of the library that returns 0 for success.
    if (SSL_CTX_set_alpn_protos(ctx, reinterpret_cast<const unsigned char*>(alpn.data()),
                                static_cast<unsigned int>(alpn.size())) != 0) {
        failed("Cannot set up ALPN");
    }
}

void TlsContext::configureServer() {
    SSL_CTX* ctx = context.get();
    // Nothing resumes: who resumes shows no certificate, and is known only to whoever has the keys
    // of the tickets.
    SSL_CTX_set_session_cache_mode(ctx, SSL_SESS_CACHE_OFF);
    SSL_CTX_set_options(ctx, SSL_OP_NO_TICKET);
    if (SSL_CTX_set_num_tickets(ctx, 0) != 1) {
        failed("Cannot do without session tickets");
    }
    SSL_CTX_set_alpn_select_cb(ctx, &selectAlpn, nullptr);
}

void TlsContext::useMaterial(const Material& material) {
    const std::string named = "\"" + files.certificateFile + "\"";
    useShown(material.chain);
    if (SSL_CTX_use_PrivateKey(context.get(), material.key.get()) != 1) {
        failed("Cannot use the private key for " + named);
    }
    const int keyType = EVP_PKEY_get_base_id(material.key.get());
    if (serverSide && keyType != EVP_PKEY_EC && keyType != EVP_PKEY_RSA) {
        throw CException("The private key for " + named +
                         " is neither EC nor RSA, and an agent can use no other.");
    }
    useTrusted(material.authorities);
}

void TlsContext::useShown(const std::vector<Certificate>& chain) {
    SSL_CTX* ctx = context.get();
    const std::string named = "\"" + files.certificateFile + "\"";
    if (chain.empty() || SSL_CTX_use_certificate(ctx, chain.front().get()) != 1) {
        failed("Cannot use the certificate in " + named);
    }
    for (std::size_t i = 1; i < chain.size(); ++i) {
        X509* link = chain[i].get();
        // The peer has the roots; only what lies between helps it.
        if ((X509_get_extension_flags(link) & EXFLAG_SS) == 0 &&
            SSL_CTX_add1_chain_cert(ctx, link) != 1) {
            failed("Cannot use the chain in " + named);
        }
    }
}

void TlsContext::useTrusted(const std::vector<Certificate>& authorities) {
    X509_STORE* store = SSL_CTX_get_cert_store(context.get());
    for (const Certificate& authority : authorities) {
        if (X509_check_ca(authority.get()) == 0) {
            throw CException("The file \"" +
                             (files.caFile.empty() ? files.certificateFile : files.caFile) +
                             "\" holds a certificate that is not a CA's (" +
                             tlsfault::subject(authority.get()) + ") among those to be trusted.");
        }
        if (X509_STORE_add_cert(store, authority.get()) != 1) {
            failed("Cannot trust the CA in \"" + files.certificateFile + "\"");
        }
    }
    // The CAs named are trusted as they are, be they roots or not.
    X509_STORE_set_flags(store, X509_V_FLAG_PARTIAL_CHAIN);
}

void TlsContext::useRevocationList() {
    const std::string file = certificateexpiry::revocationListBeside(files.certificateFile);
    struct stat found {};
    if (stat(file.c_str(), &found) != 0 && (errno == ENOENT || errno == ENOTDIR)) {
        return;
    }
    const PemText text(file);
    useRevocationLists(text.bio().get(), file);
}

void TlsContext::useRevocationLists(BIO* bio, const std::string& file) {
    X509_STORE* store = SSL_CTX_get_cert_store(context.get());
    int lists = 0;
    ERR_clear_error();
    while (X509_CRL* next = PEM_read_bio_X509_CRL(bio, nullptr, nullptr, nullptr)) {
        const FreedBy<X509_CRL, X509_CRL_free> list(next);
        if (X509_STORE_add_crl(store, list.get()) != 1) {
            failed("Cannot use the revocation list \"" + file + "\"");
        }
        ++lists;
    }
    if (lists == 0 || ERR_GET_REASON(ERR_peek_last_error()) != PEM_R_NO_START_LINE) {
        failed("The revocation list \"" + file + "\" is damaged");
    }
    ERR_clear_error();
    X509_STORE_set_flags(store, X509_V_FLAG_CRL_CHECK);
}

bool TlsContext::isRevoking() const {
    X509_VERIFY_PARAM* const parameters =
        X509_STORE_get0_param(SSL_CTX_get_cert_store(context.get()));
    return (X509_VERIFY_PARAM_get_flags(parameters) & X509_V_FLAG_CRL_CHECK) != 0;
}

std::string TlsContext::publicParts() const {
    std::string shown = derOf(SSL_CTX_get0_certificate(context.get()));
    STACK_OF(X509)* chain = nullptr;
    SSL_CTX_get0_chain_certs(context.get(), &chain);
    for (int i = 0; i < sk_X509_num(chain); ++i) {
        shown += derOf(sk_X509_value(chain, i));
    }
    std::string trusted;
    const Bio lists(BIO_new(BIO_s_mem()));
    const STACK_OF(X509_OBJECT)* const objects =
        X509_STORE_get0_objects(SSL_CTX_get_cert_store(context.get()));
    for (int i = 0; i < sk_X509_OBJECT_num(objects); ++i) {
        const X509_OBJECT* const object = sk_X509_OBJECT_value(objects, i);
        if (X509_OBJECT_get_type(object) == X509_LU_X509) {
            trusted += derOf(X509_OBJECT_get0_X509(object));
        } else if (!lists ||
                   PEM_write_bio_X509_CRL(lists.get(), X509_OBJECT_get0_X509_CRL(object)) != 1) {
            failed("Cannot hand on a revocation list");
        }
    }
    char* bytes = nullptr;
    const long count = BIO_get_mem_data(lists.get(), &bytes);
    std::string all;
    for (const std::string& part : {files.certificateFile, shown, trusted,
                                    std::string(bytes, static_cast<std::size_t>(count))}) {
        const auto length = static_cast<std::uint32_t>(part.size());
        all.append(reinterpret_cast<const char*>(&length), sizeof length);
        all += part;
    }
    return all;
}

std::shared_ptr<TlsContext> TlsContext::serverOf(const std::string& publicParts) {
    std::vector<std::string> parts;
    std::size_t at = 0;
    for (int i = 0; i < 4; ++i) {
        std::uint32_t length = 0;
        if (publicParts.size() - at < sizeof length) {
            throw CException("The parts of a TLS context are incomplete.");
        }
        std::memcpy(&length, &publicParts[at], sizeof length);
        at += sizeof length;
        if (publicParts.size() - at < length) {
            throw CException("The parts of a TLS context are incomplete.");
        }
        parts.push_back(publicParts.substr(at, length));
        at += length;
    }
    return std::shared_ptr<TlsContext>(new TlsContext(parts));
}

std::string TlsContext::describeOwnCertificate() const {
    const X509* own = SSL_CTX_get0_certificate(context.get());
    return "\"" + files.certificateFile + "\" (" + tlsfault::subject(own) + ", " +
           tlsfault::validity(own) + ")";
}

std::vector<Certificate> TlsContext::parse(const std::string& certificates) {
    const auto* next = reinterpret_cast<const unsigned char*>(certificates.data());
    const unsigned char* const end = next + certificates.size();
    std::vector<Certificate> parsed;
    while (next < end) {
        Certificate certificate(d2i_X509(nullptr, &next, static_cast<long>(end - next)));
        if (!certificate) {
            ERR_clear_error();
            break;
        }
        parsed.push_back(std::move(certificate));
    }
    return parsed;
}

std::string TlsContext::refusalOf(const std::string& certificates, const std::string& whose,
                                  std::string& name) const {
    return refusalOf(parse(certificates), whose, name);
}

std::string TlsContext::refusalOf(const std::vector<Certificate>& parsed, const std::string& whose,
                                  std::string& name) const {
    const std::unique_ptr<STACK_OF(X509), StackDeleter> issuers(sk_X509_new_null());
    const FreedBy<X509_STORE_CTX, X509_STORE_CTX_free> check(X509_STORE_CTX_new());
    if (parsed.empty() || !issuers || !check) {
        ERR_clear_error();
        return "The certificate of " + whose + " cannot be read.";
    }
    for (const Certificate& certificate : parsed) {
        if (sk_X509_push(issuers.get(), certificate.get()) <= 0) {
            return "The certificate of " + whose + " cannot be checked.";
        }
    }
    X509* const own = parsed.front().get();
    name = tlsfault::commonName(own);
    const bool ready =
        X509_STORE_CTX_init(check.get(), SSL_CTX_get_cert_store(context.get()), own,
                            issuers.get()) == 1 &&
        X509_STORE_CTX_set_default(check.get(), serverSide ? "ssl_client" : "ssl_server") == 1;
    const bool accepted = ready && X509_verify_cert(check.get()) == 1;
    ERR_clear_error();
    if (accepted && tlsfault::namesPurpose(own)) {
        return "";
    }
    const int error = accepted ? X509_V_ERR_INVALID_PURPOSE : X509_STORE_CTX_get_error(check.get());
    return tlsfault::describeVerification(error, own, whose, serverSide ? "" : whose);
}
