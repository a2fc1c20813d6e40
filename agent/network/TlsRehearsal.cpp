#include "TlsRehearsal.h"

#include <exception>

#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include "FreedBy.h"

namespace tlsrehearsal {
namespace {

constexpr char kGroup[] = "P-256";
constexpr long kValidSeconds = 3600;
// More turns than the messages of a handshake need.
constexpr int kMostTurns = 8;

using Key = FreedBy<EVP_PKEY, EVP_PKEY_free>;
using Certificate = FreedBy<X509, X509_free>;
using Context = FreedBy<SSL_CTX, SSL_CTX_free>;
using Connection = FreedBy<SSL, SSL_free>;

// Signed by itself.
Certificate certificateFor(EVP_PKEY* key) {
    static const unsigned char name[] = "rehearsal";
    Certificate made(X509_new());
    if (!made || X509_set_version(made.get(), 2) != 1 ||
        ASN1_INTEGER_set(X509_get_serialNumber(made.get()), 1) != 1 ||
        X509_gmtime_adj(X509_getm_notBefore(made.get()), 0) == nullptr ||
        X509_gmtime_adj(X509_getm_notAfter(made.get()), kValidSeconds) == nullptr ||
        X509_NAME_add_entry_by_txt(X509_get_subject_name(made.get()), "CN", MBSTRING_ASC, name, -1,
                                   -1, 0) != 1 ||
        X509_set_issuer_name(made.get(), X509_get_subject_name(made.get())) != 1 ||
        X509_set_pubkey(made.get(), key) != 1 || X509_sign(made.get(), key, EVP_sha256()) == 0) {
        return nullptr;
    }
    return made;
}

// One end, which shows the certificate and trusts nothing else.
Context contextOf(const SSL_METHOD* method, X509* certificate, EVP_PKEY* key) {
    Context made(SSL_CTX_new(method));
    if (!made || SSL_CTX_set_min_proto_version(made.get(), TLS1_3_VERSION) != 1 ||
        SSL_CTX_set1_groups_list(made.get(), kGroup) != 1 ||
        SSL_CTX_use_certificate(made.get(), certificate) != 1 ||
        SSL_CTX_use_PrivateKey(made.get(), key) != 1 ||
        X509_STORE_add_cert(SSL_CTX_get_cert_store(made.get()), certificate) != 1) {
        return nullptr;
    }
    SSL_CTX_set_session_cache_mode(made.get(), SSL_SESS_CACHE_OFF);
    SSL_CTX_set_num_tickets(made.get(), 0);
    SSL_CTX_set_verify(made.get(), SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    return made;
}

bool connect(SSL* server, SSL* client) {
    BIO* ends[2] = {nullptr, nullptr};
    if (BIO_new_bio_pair(&ends[0], 0, &ends[1], 0) != 1) {
        return false;
    }
    // Each takes its end over.
    SSL_set_bio(server, ends[0], ends[0]);
    SSL_set_bio(client, ends[1], ends[1]);
    SSL_set_accept_state(server);
    SSL_set_connect_state(client);
    for (int i = 0; i < kMostTurns; ++i) {
        ERR_clear_error();
        const bool clientIsDone = SSL_do_handshake(client) == 1;
        if (SSL_do_handshake(server) == 1 && clientIsDone) {
            return true;
        }
    }
    return false;
}

// A byte each way.
bool converse(SSL* server, SSL* client) {
    char byte = '0';
    return SSL_write(client, &byte, 1) == 1 && SSL_read(server, &byte, 1) == 1 &&
           SSL_write(server, &byte, 1) == 1 && SSL_read(client, &byte, 1) == 1 &&
           SSL_shutdown(server) == 0;
}

bool rehearse() {
    const Key key(EVP_EC_gen(kGroup));
    const Certificate certificate = key ? certificateFor(key.get()) : nullptr;
    if (!certificate) {
        return false;
    }
    const Context servers = contextOf(TLS_server_method(), certificate.get(), key.get());
    const Context clients = contextOf(TLS_client_method(), certificate.get(), key.get());
    const Connection server(servers ? SSL_new(servers.get()) : nullptr);
    const Connection client(clients ? SSL_new(clients.get()) : nullptr);
    return server && client && connect(server.get(), client.get()) &&
           converse(server.get(), client.get());
}

}  // namespace

bool perform() noexcept {
    bool isDone = false;
    try {
        isDone = rehearse();
    } catch (const std::exception&) {
        isDone = false;
    }
    ERR_clear_error();
    return isDone;
}

}  // namespace tlsrehearsal
