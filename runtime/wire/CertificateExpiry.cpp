#include "CertificateExpiry.h"

#include <set>

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include "FreedBy.h"
#include "TlsFault.h"

namespace certificateexpiry {

namespace {

using Bio = FreedBy<BIO, BIO_free>;

// "expired on ...", "expires in 3 days, on ..."; empty while there is time.
std::string endingOf(const ASN1_TIME* end, std::time_t now, int days) {
    const FreedBy<ASN1_TIME, ASN1_TIME_free> current(ASN1_TIME_set(nullptr, now));
    int wholeDays = 0;
    int seconds = 0;
    if (!current || ASN1_TIME_diff(&wholeDays, &seconds, current.get(), end) != 1) {
        return "";
    }
    if (wholeDays < 0 || seconds < 0 || (wholeDays == 0 && seconds == 0)) {
        return "expired on " + tlsfault::timeText(end);
    }
    if (wholeDays >= days) {
        return "";
    }
    const std::string left = wholeDays == 0   ? std::to_string(seconds / 3600) + " hours"
                             : wholeDays == 1 ? "1 day"
                                              : std::to_string(wholeDays) + " days";
    return "expires in " + left + ", on " + tlsfault::timeText(end);
}

std::string describe(const std::string& what, const std::string& file, const std::string& ending) {
    return "The " + what + " \"" + file + "\" " + ending;
}

void addCertificates(const std::string& file, std::time_t now, int days,
                     std::list<std::string>& found) {
    const Bio bio(BIO_new_file(file.c_str(), "re"));
    while (bio) {
        const FreedBy<X509, X509_free> certificate(
            PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr));
        if (!certificate) {
            break;
        }
        const std::string ending = endingOf(X509_get0_notAfter(certificate.get()), now, days);
        if (!ending.empty()) {
            found.push_back(describe("certificate " + tlsfault::subject(certificate.get()) + " in",
                                     file, ending + "."));
        }
    }
    ERR_clear_error();
}

void addLists(const std::string& file, std::time_t now, int days, std::list<std::string>& found) {
    const Bio bio(BIO_new_file(file.c_str(), "re"));
    while (bio) {
        const FreedBy<X509_CRL, X509_CRL_free> list(
            PEM_read_bio_X509_CRL(bio.get(), nullptr, nullptr, nullptr));
        if (!list) {
            break;
        }
        const ASN1_TIME* end = X509_CRL_get0_nextUpdate(list.get());
        const std::string ending = end == nullptr ? "" : endingOf(end, now, days);
        if (!ending.empty()) {
            found.push_back(
                describe("revocation list", file, ending + "; nobody is accepted after that."));
        }
    }
    ERR_clear_error();
}

}  // namespace

std::list<std::string> warnings(const std::list<std::string>& files, std::time_t now, int days) {
    std::list<std::string> found;
    std::set<std::string> seen;
    for (const std::string& file : files) {
        if (!file.empty() && seen.insert(file).second) {
            addCertificates(file, now, days, found);
            addLists(file, now, days, found);
        }
    }
    return found;
}

std::string revocationListBeside(const std::string& certificateFile) {
    const std::string::size_type slash = certificateFile.find_last_of('/');
    return slash == std::string::npos ? "crl.pem"
                                      : certificateFile.substr(0, slash + 1) + "crl.pem";
}

}  // namespace certificateexpiry
