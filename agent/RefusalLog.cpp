#include "RefusalLog.h"

#include <charconv>
#include <vector>

#include "Text.h"

namespace {

// No field holds one.
constexpr char kSeparator = '\n';
// The listener has others to serve; what is not audited in time stands in the log.
constexpr std::chrono::milliseconds kAuditPatience(100);

enum Field { kCertificate, kAddress, kUser, kNumber, kRequest, kId, kWho, kText, kFields };

}  // namespace

RefusalLog::RefusalLog(const EventLog& eventLog)
    : log(eventLog), refusals([this](const std::string& report) { write(report); }) {}

std::string RefusalLog::encode(const AuditEntry& entry, const std::string& who,
                               const std::string& text) {
    return Text::printable(entry.certificate) + kSeparator + entry.address + kSeparator +
           Text::printable(entry.user, 256) + kSeparator + std::to_string(entry.number) +
           kSeparator + entry.request + kSeparator + entry.id + kSeparator + who + kSeparator +
           text;
}

void RefusalLog::note(const std::string& report, Clock::time_point now) {
    const std::vector<std::string> fields = Text::split(report, kSeparator);
    if (fields.size() == kFields) {
        refusals.note(fields[kCertificate] + " " + fields[kAddress], report, now);
    }
}

void RefusalLog::write(const std::string& report) const {
    const std::vector<std::string> fields = Text::split(report, kSeparator);
    AuditEntry entry;
    entry.certificate = fields[kCertificate];
    entry.address = fields[kAddress];
    entry.user = fields[kUser];
    const std::string& number = fields[kNumber];
    std::from_chars(number.data(), number.data() + number.size(), entry.number);
    entry.request = fields[kRequest];
    entry.id = fields[kId];
    log.warning(fields[kWho] + ": refused: " + fields[kText]);
    const std::string fault =
        AuditLog(auditFile, kAuditPatience).tryAppend(entry, "refused", fields[kText], 0);
    if (!fault.empty()) {
        log.error("audit: " + Text::printable(fault));
    }
}
