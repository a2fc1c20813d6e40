#pragma once

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include "FreedBy.h"

// A certificate authority for tests: makes certificates good and bad and writes them as PEM files
// into a directory. "crl.pem" in that directory is found beside every certificate in it.
class TestPki {
public:
    enum class Purpose { kMaster, kNode, kAny };

    struct Request {
        std::string commonName = "test";
        Purpose purpose = Purpose::kMaster;
        std::vector<std::string> addresses;  // IP literals
        std::vector<std::string> names;
        long notBeforeSeconds = -3600;  // from now
        long notAfterSeconds = 90 * 24 * 3600;
    };

    // certificateFile: the certificate, the CA's, and the key; keyFile: the key alone.
    struct Identity {
        std::string certificateFile;
        std::string keyFile;
        long serial = 0;
    };

    explicit TestPki(std::string intoDirectory, const std::string& caName = "Test CA");

    std::string caFile() const { return directory + "/ca.pem"; }
    std::string caText() const { return pem(caCertificate.get()); }

    // Writes <fileName>.pem and <fileName>.key.
    Identity issue(const std::string& fileName, const Request& request);
    Identity master(const std::string& fileName = "master");
    Identity node(const std::string& fileName = "node", const std::string& address = "127.0.0.1");

    // Writes crl.pem with these serial numbers.
    void revoke(const std::vector<long>& serials, long lastUpdate = -60, long nextUpdate = 3600);

private:
    using Key = FreedBy<EVP_PKEY, EVP_PKEY_free>;
    using Certificate = FreedBy<X509, X509_free>;
    using Time = FreedBy<ASN1_TIME, ASN1_TIME_free>;
    using Memory = FreedBy<BIO, BIO_free>;

    static void check(int succeeded);

    static Key makeKey() { return Key(EVP_EC_gen("P-256")); }

    static std::string text(BIO* bio);
    static std::string pem(X509* certificate);
    static std::string pem(EVP_PKEY* key);
    void fill(X509* certificate, const Request& request, EVP_PKEY* key, long serial);
    void extend(X509* certificate, int kind, const std::string& value);

    void sign(X509* certificate) { check(X509_sign(certificate, caKey.get(), EVP_sha256())); }

    std::string directory;
    Key caKey;
    Certificate caCertificate;
    long lastSerial = 100;
};
