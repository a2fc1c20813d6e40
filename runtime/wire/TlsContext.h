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
// Immutable once made, forgetKey() apart: one context serves any number of threads. Connections
// hold it through the shared_ptr, because they may outlive the settings when the files change
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

    TlsContext(const TlsContext&) = delete;
    TlsContext& operator=(const TlsContext&) = delete;
    ~TlsContext();

    SSL_CTX* get() const { return context.get(); }
    // Null once it is forgotten.
    EVP_PKEY* privateKey() const { return key.get(); }
    // Frees and wipes the private key, where something else signs for the connections
    // (signingproxy). For a process that shares this object with no other thread.
    void forgetKey() { key.reset(); }
    bool isServer() const { return serverSide; }
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
    void configureCommon();
    void configureClient();
    void configureServer();
    void useMaterial(const Material& material);
    void useRevocationList();

    const TlsFiles files;
    const bool serverSide;
    PrivateKey key;
    FreedBy<SSL_CTX, SSL_CTX_free> context;
};
