#include "RequestAudit.h"

#include <unistd.h>
#include <utility>

#include "Text.h"

RequestAudit::RequestAudit(std::string fileName, const EventLog& eventLog)
    : file(std::move(fileName)), log(eventLog), arrivedAt(Clock::now()) {}

void RequestAudit::setPeer(const std::string& certificate, const std::string& address) {
    entry.certificate = certificate;
    entry.address = address;
}

void RequestAudit::setCommand(const std::string& user, std::uint32_t number) {
    entry.user = user;
    entry.number = number;
}

long long RequestAudit::elapsedMs() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - arrivedAt).count();
}

std::string RequestAudit::nextId() {
    return std::to_string(::getpid()) + "-" + std::to_string(++count);
}

void RequestAudit::record(const char* request, const std::string& what, const std::string& hmac,
                          const std::function<void(const AuditLog&)>& write) {
    entry.request = request;
    entry.what = what;
    entry.hmac = hmac;
    entry.id = nextId();
    try {
        write(AuditLog(file));
    } catch (const CException& fault) {
        throw Fault("the audit of this node cannot be written, so nothing is done: " +
                    fault.getErrMsg());
    }
}

void RequestAudit::begin(const char* request, const std::string& what, const std::string& hmac) {
    record(request, what, hmac,
           [this](const AuditLog& written) { written.append(entry, "start", "", 0); });
    isOpen = true;
}

void RequestAudit::whole(const char* request, const std::string& result) {
    record(request, "", "",
           [&](const AuditLog& written) { written.appendWhole(entry, result, elapsedMs()); });
}

const AuditEntry& RequestAudit::beginRefused(const std::string& request) {
    entry.request = request;
    entry.what.clear();
    entry.hmac.clear();
    entry.id = nextId();
    return entry;
}

void RequestAudit::refused(const std::string& text) {
    tryAppend("refused", text, 0);
}

void RequestAudit::end(const std::string& result) {
    if (isOpen) {
        isOpen = false;
        tryAppend("end", result, elapsedMs());
    }
}

void RequestAudit::tryAppend(const char* event, const std::string& outcome,
                             long long millis) const {
    const std::string fault = AuditLog(file).tryAppend(entry, event, outcome, millis);
    if (!fault.empty()) {
        log.error("audit: " + Text::printable(fault));
    }
}
