#pragma once

#include <string>

#include <openssl/x509.h>

// Turns what OpenSSL knows about a failure into sentences an administrator can act on: which
// certificate, whose it is, what is wrong with it. Stateless; safe from any thread.
namespace tlsfault {

// The newest entry of this thread's OpenSSL error queue as text; empties the queue.
std::string lastReason();

// "CN=node_0001,O=kelsh"; "CN=?" style placeholders are not used: an unreadable name is empty.
std::string subject(const X509* certificate);
// Empty also where there are several: rights that hang on the name must not depend on which of them
// one looks at.
std::string commonName(const X509* certificate);
// "2026-01-31 12:00:00 UTC"
std::string timeText(const ASN1_TIME* time);
// "valid from ... to ..."
std::string validity(const X509* certificate);
// Whether the certificate says at all what it is for. OpenSSL lets one that does not pass for
// anything; here such a key would be master and node at once.
bool namesPurpose(X509* certificate);
// Whether the last day of the certificate has passed.
bool isExpired(const X509* certificate);

// What a failed verification means.
//   error        X509_V_ERR_...
//   certificate  the one at which verification stopped; null when unknown
//   whose        "127.0.0.1:4422"
//   dialled      the address dialled; empty on the server's side
std::string describeVerification(int error, const X509* certificate, const std::string& whose,
                                 const std::string& dialled);

// Whether the OpenSSL reason is an alert by which the peer refuses our certificate, and what such
// an alert says about it ("has expired").
bool isCertificateAlert(int reason);
std::string describeAlert(int reason);

}  // namespace tlsfault
