#pragma once

#include <memory>
#include <string>
#include <vector>

#include <openssl/ssl.h>
#include <openssl/x509.h>

#include "FreedBy.h"

// The PEM files one end of a connection is made from. Besides these, "crl.pem" beside the
// certificate file is enforced when it exists.
struct TlsFiles {
    // The end's own certificate first. Certificates after it are the CAs to trust, where caFile is
    // empty. It may hold the private key too.
    std::string certificateFile;
    // Empty: the key stands in certificateFile.
    std::string privateKeyFile;
    // The CAs to trust, for an end that keeps them in a file of their own.
    std::string caFile;
};

// Everything that connections of one identity share: certificate, key, trusted CAs, revocation
// list. TLS 1.3 only, ALPN "kelsh/1", both ends show a certificate, nothing but the CAs named in
// the files is trusted. Nothing resumes: every connection proves who is at its ends.
//
// Immutable once made: one context serves any number of threads. Connections hold it through the
// shared_ptr, because they may outlive the settings when the files change
// under a running process.
class TlsContext {
public:
    using Certificate = FreedBy<X509, X509_free>;
    using PrivateKey = FreedBy<EVP_PKEY, EVP_PKEY_free>;

    // A new client context for these files. Throws CException that names the file and what is
    // wrong.
    static std::shared_ptr<TlsContext> client(const TlsFiles& files);
    // The same for a server.
    static std::shared_ptr<TlsContext> server(const TlsFiles& files);
    // What a server's context shows and trusts, without its key, as bytes for another process; and
    // a context made of them. Both throw CException.
    std::string publicParts() const;
    static std::shared_ptr<TlsContext> serverOf(const std::string& publicParts);

    TlsContext(const TlsContext&) = delete;
    TlsContext& operator=(const TlsContext&) = delete;
    ~TlsContext();

    SSL_CTX* get() const { return context.get(); }
    // Null for one made of public parts.
    EVP_PKEY* privateKey() const { return key.get(); }
    bool isServer() const { return serverSide; }
    // Whether a revocation list is enforced.
    bool isRevoking() const;
    // The own certificate for messages: file, subject and validity.
    std::string describeOwnCertificate() const;

    // Whether a peer with these certificates (DER one after the other, its own first) is accepted
    // by this context's CAs and revocation list. Returns why not, or an empty text; name gets the
    // common name.
    std::string refusalOf(const std::string& certificates, const std::string& whose,
                          std::string& name) const;
    // The same of certificates that are parsed already, which takes the library longer than to
    // check them.
    std::string refusalOf(const std::vector<Certificate>& certificates, const std::string& whose,
                          std::string& name) const;
    // DER, one after the other, up to the first that cannot be read.
    static std::vector<Certificate> parse(const std::string& certificates);

private:
    struct Material;

    TlsContext(const TlsFiles& files, bool server);
    explicit TlsContext(const std::vector<std::string>& parts);
    void makeEmpty();
    void configureCommon();
    void configureClient();
    void configureServer();
    void useMaterial(const Material& material);
    void useShown(const std::vector<Certificate>& chain);
    void useTrusted(const std::vector<Certificate>& authorities);
    void useRevocationList();
    void useRevocationLists(BIO* lists, const std::string& file);

    const TlsFiles files;
    const bool serverSide;
    PrivateKey key;
    FreedBy<SSL_CTX, SSL_CTX_free> context;
};
