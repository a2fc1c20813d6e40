#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include "AuditLog.h"
#include "CException.h"
#include "EventLog.h"

// What one session writes into the audit: which request of whose is served, that it began, how it
// ended and how long it took. Requests come one after the other.
class RequestAudit {
public:
    // Nothing is done that cannot be recorded.
    class Fault : public CException {
    public:
        using CException::CException;
    };

    // fileName: empty for no audit. The log stays the caller's.
    RequestAudit(std::string fileName, const EventLog& eventLog);

    // Who asks, and for which of its commands.
    void setPeer(const std::string& certificate, const std::string& address);
    void setCommand(const std::string& user, std::uint32_t number);

    // A request has come: its time counts from here.
    void arrive() { arrivedAt = Clock::now(); }
    long long elapsedMs() const;

    // Writes the start of a request. Throws Fault: it must not be served then.
    //   hmac  of the whole command line where something is masked in what
    void begin(const char* request, const std::string& what, const std::string& hmac = "");
    // Both, of a request that changes nothing, before it is answered. Throws Fault.
    void whole(const char* request, const std::string& result);
    // A request that is not served: becomes the current one, for somebody else to write.
    const AuditEntry& beginRefused(const std::string& request);
    // Writes that one. Errors are logged.
    void refused(const std::string& text);
    // Its end, unless none is open or somebody else is to write that. Errors are logged.
    void end(const std::string& result);

    // The end of the request that is open is written by another process, and is this one's again.
    void handOver() { isOpen = false; }
    void takeBack() { isOpen = true; }
    const AuditEntry& current() const { return entry; }

private:
    using Clock = std::chrono::steady_clock;

    std::string nextId();
    void record(const char* request, const std::string& what, const std::string& hmac,
                const std::function<void(const AuditLog&)>& write);
    void tryAppend(const char* event, const std::string& outcome, long long millis) const;

    const std::string file;
    const EventLog& log;
    AuditEntry entry;
    bool isOpen = false;
    unsigned long count = 0;
    Clock::time_point arrivedAt;
};
