#include "TestPki.h"

#include <ctime>

TestPki::TestPki(std::string intoDirectory, const std::string& caName)
    : directory(std::move(intoDirectory)), caKey(makeKey()), caCertificate(X509_new()) {
    std::filesystem::create_directories(directory);
    Request request;
    request.commonName = caName;
    fill(caCertificate.get(), request, caKey.get(), 1);
    extend(caCertificate.get(), NID_basic_constraints, "critical,CA:TRUE");
    extend(caCertificate.get(), NID_key_usage, "critical,keyCertSign,cRLSign");
    sign(caCertificate.get());
    std::ofstream(caFile()) << pem(caCertificate.get());
}

TestPki::Identity TestPki::issue(const std::string& fileName, const Request& request) {
    const Key key = makeKey();
    const Certificate certificate(X509_new());
    const long serial = ++lastSerial;
    fill(certificate.get(), request, key.get(), serial);
    if (request.purpose != Purpose::kAny) {
        extend(certificate.get(), NID_ext_key_usage,
               request.purpose == Purpose::kMaster ? "clientAuth" : "serverAuth");
    }
    std::string alternatives;
    for (const std::string& address : request.addresses) {
        alternatives += (alternatives.empty() ? "IP:" : ",IP:") + address;
    }
    for (const std::string& name : request.names) {
        alternatives += (alternatives.empty() ? "DNS:" : ",DNS:") + name;
    }
    if (!alternatives.empty()) {
        extend(certificate.get(), NID_subject_alt_name, alternatives);
    }
    sign(certificate.get());
    Identity identity;
    identity.certificateFile = directory + "/" + fileName + ".pem";
    identity.keyFile = directory + "/" + fileName + ".key";
    identity.serial = serial;
    std::ofstream(identity.certificateFile) << pem(certificate.get()) << caText() << pem(key.get());
    std::ofstream(identity.keyFile) << pem(key.get());
    return identity;
}

TestPki::Identity TestPki::master(const std::string& fileName) {
    Request request;
    request.commonName = fileName;
    return issue(fileName, request);
}

TestPki::Identity TestPki::node(const std::string& fileName, const std::string& address) {
    Request request;
    request.commonName = fileName;
    request.purpose = Purpose::kNode;
    request.addresses = {address};
    return issue(fileName, request);
}

void TestPki::revoke(const std::vector<long>& serials, long lastUpdate, long nextUpdate) {
    const FreedBy<X509_CRL, X509_CRL_free> list(X509_CRL_new());
    check(X509_CRL_set_version(list.get(), 1));
    check(X509_CRL_set_issuer_name(list.get(), X509_get_subject_name(caCertificate.get())));
    const Time from(ASN1_TIME_adj(nullptr, std::time(nullptr), 0, lastUpdate));
    const Time until(ASN1_TIME_adj(nullptr, std::time(nullptr), 0, nextUpdate));
    check(X509_CRL_set1_lastUpdate(list.get(), from.get()));
    check(X509_CRL_set1_nextUpdate(list.get(), until.get()));
    for (const long serial : serials) {
        X509_REVOKED* entry = X509_REVOKED_new();
        const FreedBy<ASN1_INTEGER, ASN1_INTEGER_free> number(ASN1_INTEGER_new());
        check(ASN1_INTEGER_set(number.get(), serial));
        check(X509_REVOKED_set_serialNumber(entry, number.get()));
        check(X509_REVOKED_set_revocationDate(entry, from.get()));
        check(X509_CRL_add0_revoked(list.get(), entry));
    }
    check(X509_CRL_sign(list.get(), caKey.get(), EVP_sha256()));
    const Memory bio(BIO_new(BIO_s_mem()));
    check(PEM_write_bio_X509_CRL(bio.get(), list.get()));
    std::ofstream(directory + "/crl.pem") << text(bio.get());
}

void TestPki::check(int succeeded) {
    if (succeeded <= 0) {
        throw std::runtime_error("the test's certificate authority failed");
    }
}

std::string TestPki::text(BIO* bio) {
    char* data = nullptr;
    const long length = BIO_get_mem_data(bio, &data);
    return std::string(data, static_cast<std::size_t>(length));
}

std::string TestPki::pem(X509* certificate) {
    const Memory bio(BIO_new(BIO_s_mem()));
    check(PEM_write_bio_X509(bio.get(), certificate));
    return text(bio.get());
}

std::string TestPki::pem(EVP_PKEY* key) {
    const Memory bio(BIO_new(BIO_s_mem()));
    check(PEM_write_bio_PrivateKey(bio.get(), key, nullptr, nullptr, 0, nullptr, nullptr));
    return text(bio.get());
}

void TestPki::fill(X509* certificate, const Request& request, EVP_PKEY* key, long serial) {
    check(X509_set_version(certificate, 2));
    check(ASN1_INTEGER_set(X509_get_serialNumber(certificate), serial));
    const std::time_t now = std::time(nullptr);
    check(ASN1_TIME_adj(X509_getm_notBefore(certificate), now, 0, request.notBeforeSeconds) !=
          nullptr);
    check(ASN1_TIME_adj(X509_getm_notAfter(certificate), now, 0, request.notAfterSeconds) !=
          nullptr);
    check(X509_set_pubkey(certificate, key));
    check(X509_NAME_add_entry_by_txt(
        X509_get_subject_name(certificate), "CN", MBSTRING_UTF8,
        reinterpret_cast<const unsigned char*>(request.commonName.c_str()), -1, -1, 0));
    check(X509_set_issuer_name(certificate, X509_get_subject_name(caCertificate.get())));
}

void TestPki::extend(X509* certificate, int kind, const std::string& value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, caCertificate.get(), certificate, nullptr, nullptr, 0);
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str());
    const int added = extension == nullptr ? 0 : X509_add_ext(certificate, extension, -1);
    X509_EXTENSION_free(extension);
    check(added);
}
