#include "Issuer.h"

#include <ctime>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include "FreedBy.h"

namespace {

void require(bool holds) {
    if (!holds) {
        throw std::runtime_error("a certificate could not be made");
    }
}

void extend(X509* certificate, X509* by, int kind, const std::string& value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, by, certificate, nullptr, nullptr, 0);
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str());
    const bool added = extension != nullptr && X509_add_ext(certificate, extension, -1) == 1;
    X509_EXTENSION_free(extension);
    require(added);
}

using Memory = FreedBy<BIO, BIO_free>;

std::string text(BIO* bio) {
    char* data = nullptr;
    const long length = BIO_get_mem_data(bio, &data);
    return std::string(data, static_cast<std::size_t>(length));
}

}  // namespace

namespace issuer {

Identity make(const Wish& wish, const Identity* by) {
    static long lastSerial = 1000;
    Identity made;
    made.key.reset(wish.rsaBits == 0 ? EVP_EC_gen("P-256")
                                     : EVP_RSA_gen(static_cast<unsigned int>(wish.rsaBits)));
    made.certificate.reset(X509_new());
    X509* const certificate = made.certificate.get();
    require(made.key && certificate != nullptr);
    X509* const parent = by != nullptr ? by->certificate.get() : certificate;
    const std::time_t now = std::time(nullptr);
    const long serial = wish.serial != 0 ? wish.serial : ++lastSerial;
    require(X509_set_version(certificate, 2) == 1 &&
            ASN1_INTEGER_set(X509_get_serialNumber(certificate), serial) == 1 &&
            ASN1_TIME_adj(X509_getm_notBefore(certificate), now, 0, wish.fromSeconds) != nullptr &&
            ASN1_TIME_adj(X509_getm_notAfter(certificate), now, 0, wish.untilSeconds) != nullptr &&
            X509_set_pubkey(certificate, made.key.get()) == 1);
    require(
        wish.commonName.empty() ||
        X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate), "CN", MBSTRING_UTF8,
                                   reinterpret_cast<const unsigned char*>(wish.commonName.data()),
                                   static_cast<int>(wish.commonName.size()), -1, 0) == 1);
    require(X509_set_issuer_name(certificate, X509_get_subject_name(parent)) == 1);
    if (wish.isAuthority) {
        extend(certificate, parent, NID_basic_constraints, "critical,CA:TRUE");
        extend(certificate, parent, NID_key_usage, "critical,keyCertSign,cRLSign");
    }
    if (!wish.usage.empty()) {
        extend(certificate, parent, NID_ext_key_usage, wish.usage);
    }
    if (!wish.alternatives.empty()) {
        extend(certificate, parent, NID_subject_alt_name, wish.alternatives);
    }
    EVP_PKEY* const signer = by != nullptr ? by->key.get() : made.key.get();
    require(X509_sign(certificate, signer, EVP_get_digestbyname(wish.digest)) > 0);
    return made;
}

std::string pem(const Identity& identity) {
    const Memory bio(BIO_new(BIO_s_mem()));
    require(PEM_write_bio_X509(bio.get(), identity.certificate.get()) == 1);
    return text(bio.get());
}

std::string keyPem(const Identity& identity) {
    const Memory bio(BIO_new(BIO_s_mem()));
    require(PEM_write_bio_PrivateKey(bio.get(), identity.key.get(), nullptr, nullptr, 0, nullptr,
                                     nullptr) == 1);
    return text(bio.get());
}

TlsFiles write(const std::string& directory, const std::string& name, const Identity& identity,
               const std::string& rest) {
    std::filesystem::create_directories(directory);
    TlsFiles files;
    files.certificateFile = directory + "/" + name + ".pem";
    std::ofstream(files.certificateFile) << pem(identity) << rest << keyPem(identity);
    return files;
}

void revoke(const std::string& directory, const Identity& authority, const Identity& revoked,
            long untilSeconds) {
    const std::unique_ptr<X509_CRL, decltype(&X509_CRL_free)> list(X509_CRL_new(), X509_CRL_free);
    const std::unique_ptr<ASN1_TIME, decltype(&ASN1_TIME_free)> from(
        ASN1_TIME_adj(nullptr, std::time(nullptr), 0, -7200), ASN1_TIME_free);
    const std::unique_ptr<ASN1_TIME, decltype(&ASN1_TIME_free)> until(
        ASN1_TIME_adj(nullptr, std::time(nullptr), 0, untilSeconds), ASN1_TIME_free);
    X509_REVOKED* entry = X509_REVOKED_new();
    require(X509_CRL_set_version(list.get(), 1) == 1 &&
            X509_CRL_set_issuer_name(list.get(),
                                     X509_get_subject_name(authority.certificate.get())) == 1 &&
            X509_CRL_set1_lastUpdate(list.get(), from.get()) == 1 &&
            X509_CRL_set1_nextUpdate(list.get(), until.get()) == 1 &&
            X509_REVOKED_set_serialNumber(entry,
                                          X509_get_serialNumber(revoked.certificate.get())) == 1 &&
            X509_REVOKED_set_revocationDate(entry, from.get()) == 1 &&
            X509_CRL_add0_revoked(list.get(), entry) == 1 &&
            X509_CRL_sign(list.get(), authority.key.get(), EVP_sha256()) > 0);
    const Memory bio(BIO_new(BIO_s_mem()));
    require(PEM_write_bio_X509_CRL(bio.get(), list.get()) == 1);
    std::ofstream(directory + "/crl.pem") << text(bio.get());
}

}  // namespace issuer
