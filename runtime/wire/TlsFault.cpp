#include "TlsFault.h"

#include <arpa/inet.h>
#include <array>
#include <ctime>
#include <iterator>

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include "FreedBy.h"

namespace tlsfault {
namespace {

using MemoryBio = FreedBy<BIO, BIO_free>;

std::string contents(BIO* bio) {
    char* data = nullptr;
    const long length = BIO_get_mem_data(bio, &data);
    return length > 0 ? std::string(data, static_cast<std::size_t>(length)) : std::string();
}

std::string nameText(const X509_NAME* name) {
    const MemoryBio bio(BIO_new(BIO_s_mem()));
    // RFC 2253 escapes control characters, so that a peer cannot write on the terminal with its
    // name.
    if (!bio || name == nullptr || X509_NAME_print_ex(bio.get(), name, 0, XN_FLAG_RFC2253) < 0) {
        return std::string();
    }
    return contents(bio.get());
}

std::string nowText() {
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    gmtime_r(&now, &utc);
    char text[40];
    return std::string(text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &utc));
}

std::string addressText(const ASN1_OCTET_STRING* address) {
    char text[INET6_ADDRSTRLEN] = {};
    const int length = ASN1_STRING_length(address);
    const int family = length == 4 ? AF_INET : AF_INET6;
    if ((length != 4 && length != 16) ||
        inet_ntop(family, ASN1_STRING_get0_data(address), text, sizeof text) == nullptr) {
        return "?";
    }
    return text;
}

// The addresses and host names a certificate stands for: "10.0.0.7, node_0007".
std::string namesText(const X509* certificate) {
    const FreedBy<GENERAL_NAMES, GENERAL_NAMES_free> names(static_cast<GENERAL_NAMES*>(
        X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr)));
    std::string text;
    for (int i = 0; names && i < sk_GENERAL_NAME_num(names.get()); ++i) {
        const GENERAL_NAME* name = sk_GENERAL_NAME_value(names.get(), i);
        std::string entry;
        if (name->type == GEN_IPADD) {
            entry = addressText(name->d.iPAddress);
        } else if (name->type == GEN_DNS) {
            for (int at = 0; at < ASN1_STRING_length(name->d.dNSName); ++at) {
                const unsigned char c = ASN1_STRING_get0_data(name->d.dNSName)[at];
                entry += c > ' ' && c < 0x7f ? static_cast<char>(c) : '?';
            }
        } else {
            continue;
        }
        text += (text.empty() ? "" : ", ") + entry;
    }
    return text.empty() ? "no address at all" : text;
}

struct AlertEntry {
    int reason;
    const char* text;
};

constexpr std::array<AlertEntry, 10> kAlerts = {{
    {SSL_R_SSLV3_ALERT_CERTIFICATE_EXPIRED, "it has expired by the node's clock"},
    {SSL_R_SSLV3_ALERT_CERTIFICATE_REVOKED, "it has been revoked"},
    {SSL_R_SSLV3_ALERT_CERTIFICATE_UNKNOWN, "it is not acceptable"},
    {SSL_R_SSLV3_ALERT_BAD_CERTIFICATE,
     "it is damaged or not valid yet by the node's clock: check the clocks"},
    {SSL_R_SSLV3_ALERT_UNSUPPORTED_CERTIFICATE, "it is not meant for a master (wrong purpose)"},
    {SSL_R_TLSV1_ALERT_UNKNOWN_CA, "it was issued by a CA the node does not know"},
    {SSL_R_TLSV1_ALERT_ACCESS_DENIED, "it gives no access"},
    {SSL_R_TLSV1_ALERT_DECRYPT_ERROR, "its signature is wrong"},
    {SSL_R_TLSV13_ALERT_CERTIFICATE_REQUIRED, "none was shown"},
    {SSL_R_SSLV3_ALERT_NO_CERTIFICATE, "none was shown"},
}};

const AlertEntry* findAlert(int reason) {
    for (const AlertEntry& entry : kAlerts) {
        if (entry.reason == reason) {
            return &entry;
        }
    }
    return nullptr;
}

}  // namespace

std::string lastReason() {
    const unsigned long code = ERR_peek_last_error();
    ERR_clear_error();
    if (code == 0) {
        return "unknown error";
    }
    const char* reason = ERR_reason_error_string(code);
    if (reason != nullptr) {
        return reason;
    }
    std::array<char, 256> text{};
    ERR_error_string_n(code, text.data(), text.size());
    return text.data();
}

std::string subject(const X509* certificate) {
    return certificate == nullptr ? std::string() : nameText(X509_get_subject_name(certificate));
}

std::string commonName(const X509* certificate) {
    if (certificate == nullptr) {
        return std::string();
    }
    const X509_NAME* name = X509_get_subject_name(certificate);
    const int at = X509_NAME_get_index_by_NID(name, NID_commonName, -1);
    if (at < 0 || X509_NAME_get_index_by_NID(name, NID_commonName, at) >= 0) {
        return std::string();
    }
    const ASN1_STRING* value = X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, at));
    const MemoryBio bio(BIO_new(BIO_s_mem()));
    if (!bio || ASN1_STRING_print_ex(bio.get(), value, ASN1_STRFLGS_RFC2253) < 0) {
        return std::string();
    }
    return contents(bio.get());
}

std::string timeText(const ASN1_TIME* time) {
    std::tm utc{};
    if (time == nullptr || ASN1_TIME_to_tm(time, &utc) != 1) {
        return "an unreadable date";
    }
    char text[40];
    return std::string(text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &utc));
}

std::string validity(const X509* certificate) {
    return "valid from " + timeText(X509_get0_notBefore(certificate)) + " to " +
           timeText(X509_get0_notAfter(certificate));
}

bool namesPurpose(X509* certificate) {
    return certificate != nullptr && (X509_get_extension_flags(certificate) & EXFLAG_XKUSAGE) != 0;
}

bool isExpired(const X509* certificate) {
    return certificate == nullptr || X509_cmp_current_time(X509_get0_notAfter(certificate)) <= 0;
}

std::string describeVerification(int error, const X509* certificate, const std::string& whose,
                                 const std::string& dialled) {
    const std::string start =
        "The certificate of " + whose +
        (certificate == nullptr ? std::string() : " (" + subject(certificate) + ")");
    const std::string role = dialled.empty() ? "a master" : "a node agent";
    switch (error) {
        case X509_V_ERR_CERT_HAS_EXPIRED:
            return start + " expired on " + timeText(X509_get0_notAfter(certificate)) + ".";
        case X509_V_ERR_CERT_NOT_YET_VALID:
            return start + " is not valid before " + timeText(X509_get0_notBefore(certificate)) +
                   "; it is now " + nowText() + " here: check the clock.";
        case X509_V_ERR_INVALID_PURPOSE:
            return start + " is not meant for " + role + " (wrong purpose).";
        case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
        case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
        case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
        case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
        case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
            return start + " was issued by an unknown CA (" +
                   (certificate == nullptr ? std::string()
                                           : nameText(X509_get_issuer_name(certificate))) +
                   ").";
        case X509_V_ERR_CERT_SIGNATURE_FAILURE:
            return start +
                   " carries a wrong signature: it was not issued by the trusted CA of that"
                   " name, or it is damaged.";
        case X509_V_ERR_IP_ADDRESS_MISMATCH:
        case X509_V_ERR_HOSTNAME_MISMATCH:
            return start + " is not for the address " + dialled + " that was dialled; it names " +
                   (certificate == nullptr ? std::string("another") : namesText(certificate)) + ".";
        case X509_V_ERR_CERT_REVOKED:
            return start + " has been revoked.";
        case X509_V_ERR_UNABLE_TO_GET_CRL:
            return start + " cannot be checked: crl.pem holds no revocation list of its CA.";
        case X509_V_ERR_CRL_HAS_EXPIRED:
            return start + " cannot be checked: the revocation list in crl.pem has expired.";
        case X509_V_ERR_CRL_NOT_YET_VALID:
            return start +
                   " cannot be checked: the revocation list in crl.pem is not valid yet:"
                   " check the clock.";
        default:
            return start + " is not acceptable: " + X509_verify_cert_error_string(error) + ".";
    }
}

bool isCertificateAlert(int reason) {
    return findAlert(reason) != nullptr;
}

std::string describeAlert(int reason) {
    const AlertEntry* entry = findAlert(reason);
    return entry == nullptr ? "it is not acceptable" : entry->text;
}

}  // namespace tlsfault
