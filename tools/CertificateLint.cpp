#include <ctime>
#include <sys/stat.h>

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include "CException.h"
#include "FreedBy.h"
#include "LintReport.h"
#include "Posix.h"
#include "TlsContext.h"
#include "TlsFault.h"

namespace {

constexpr std::time_t kWarnSeconds = 30L * 24 * 3600;

using Certificate = FreedBy<X509, X509_free>;

std::vector<Certificate> readCertificates(const std::string& fileName) {
    std::vector<Certificate> certificates;
    const Posix::File file = Posix::openFile(fileName, "re");
    while (file) {
        Certificate next(PEM_read_X509(file.get(), nullptr, nullptr, nullptr));
        if (!next) {
            break;
        }
        certificates.push_back(std::move(next));
    }
    // The end of the file leaves an entry.
    ERR_clear_error();
    return certificates;
}

void checkMode(LintReport& report, const std::string& file, int line) {
    struct stat found {};
    if (::stat(file.c_str(), &found) == 0 && (found.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        report.warning(line, "the private key " + file +
                                 " is open to others than its owner; its mode should be 0600");
    }
}

void checkDates(LintReport& report, int line, const X509* certificate) {
    const std::string what = "the certificate of " + tlsfault::commonName(certificate);
    const ASN1_TIME* const end = X509_get0_notAfter(certificate);
    std::time_t soon = std::time(nullptr) + kWarnSeconds;
    if (X509_cmp_current_time(X509_get0_notBefore(certificate)) > 0) {
        report.error(line, what + " is not valid before " +
                               tlsfault::timeText(X509_get0_notBefore(certificate)));
    }
    if (tlsfault::isExpired(certificate)) {
        report.error(line, what + " has ended on " + tlsfault::timeText(end));
    } else if (X509_cmp_time(end, &soon) < 0) {
        report.warning(line, what + " ends on " + tlsfault::timeText(end));
    }
}

}  // namespace

void lintCertificates(LintReport& report, const std::string& certificateFile, int certificateLine,
                      const std::string& keyFile, int keyLine) {
    const bool keyApart = !keyFile.empty();
    report.warnOfLooseFiles(certificateLine, certificateFile);
    if (keyApart) {
        report.warnOfLooseFiles(keyLine, keyFile);
    }
    checkMode(report, keyApart ? keyFile : certificateFile, keyApart ? keyLine : certificateLine);
    try {
        TlsContext::client({certificateFile, keyFile, ""});
    } catch (const CException& fault) {
        report.error(certificateLine, fault.getErrMsg());
    }
    const std::vector<Certificate> certificates = readCertificates(certificateFile);
    for (const Certificate& certificate : certificates) {
        checkDates(report, certificateLine, certificate.get());
    }
    if (!certificates.empty() &&
        X509_check_purpose(certificates.front().get(), X509_PURPOSE_SSL_CLIENT, 0) != 1) {
        report.error(certificateLine, "the certificate of " +
                                          tlsfault::commonName(certificates.front().get()) +
                                          " is not that of a master (clientAuth)");
    }
}
