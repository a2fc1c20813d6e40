#pragma once

#include <ctime>
#include <list>
#include <string>

// Says in time that a certificate or a revocation list will soon be of no use: the day it ends, a
// whole cluster refuses to talk. Stateless; safe from any thread.
namespace certificateexpiry {

constexpr int kWarningDays = 30;

// A sentence for each certificate and revocation list in these PEM files that ends within the days
// after now, or has ended. Files that do not exist or hold neither are passed over: whoever uses
// them says so better.
std::list<std::string> warnings(const std::list<std::string>& files, std::time_t now,
                                int days = kWarningDays);

// "crl.pem" beside the file.
std::string revocationListBeside(const std::string& certificateFile);

}  // namespace certificateexpiry
