#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "AuditLog.h"
#include "EventLog.h"
#include "SparingLog.h"

// Requests that were refused, of all sessions together: who keeps asking for what he may not have
// must fill neither log nor audit. The first refusal of a certificate at an address is written into
// both at once, what follows within a minute as one line with its number. Failed handshakes have a
// budget of their own elsewhere, so neither can silence the other.
//
// Belongs to the listener. Not for use from several threads.
class RefusalLog {
public:
    using Clock = SparingLog::Clock;

    // The log stays the caller's.
    explicit RefusalLog(const EventLog& eventLog);
    RefusalLog(const RefusalLog&) = delete;
    RefusalLog& operator=(const RefusalLog&) = delete;

    // Empty for no audit.
    void setAuditFile(const std::string& fileName) { auditFile = fileName; }

    // report: as encode() has made it.
    void note(const std::string& report, Clock::time_point now);
    void tell(Clock::time_point now) { refusals.tell(now); }
    void tellAll(Clock::time_point now) { refusals.tellAll(now); }
    std::optional<Clock::time_point> nextDue() const { return refusals.nextDue(); }

    // One refusal as a session reports it.
    //   who   asked, as the log shows it, escaped
    //   text  what was refused and why, escaped
    static std::string encode(const AuditEntry& entry, const std::string& who,
                              const std::string& text);

private:
    void write(const std::string& report) const;

    const EventLog& log;
    std::string auditFile;
    SparingLog refusals;
};
