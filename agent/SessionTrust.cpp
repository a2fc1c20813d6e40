#include <arpa/inet.h>
#include <unistd.h>

#include "CException.h"
#include "Session.h"
#include "Text.h"

// The part of a session that judges and records.

namespace {

using protocol::FrameType;
using protocol::ProtocolError;

}  // namespace

Verdict Session::judge(SessionState state, const protocol::FrameHeader& header) const {
    const Verdict verdict =
        judgeFrame(state, grant.role, static_cast<std::uint8_t>(header.type), header.flags);
    if (verdict == Verdict::kOutOfPlace) {
        const char* const expected = state == SessionState::kGreeting ? "the shell's greeting"
                                     : state == SessionState::kUpload ? "the rest of a file"
                                                                      : "a request";
        throw ProtocolError(std::string("a ") + protocol::name(header.type) + " frame came where " +
                            expected + " was expected");
    }
    return verdict;
}

std::string Session::refusal(const std::string& what) const {
    return what + " is not allowed to the certificate " + "\"" + Text::printable(certificateName) +
           "\"" + " (role " + nameOf(grant.role) + ")";
}

bool Session::refuse(const protocol::FrameHeader& header) {
    const bool isUninterruptible = (header.flags & protocol::kFlagUninterruptible) != 0;
    const std::string what =
        std::string(protocol::name(header.type)) + (isUninterruptible ? " (uninterruptible)" : "");
    const std::string text = refusal(what);
    log.warning(who() + ": " + what + ": refused, role " + nameOf(grant.role));
    audit.request = what;
    audit.what.clear();
    audit.id = nextRequestId();
    const std::string fault = AuditLog(jobSettings.auditFile).tryAppend(audit, "refused", text, 0);
    if (!fault.empty()) {
        log.error("audit: " + Text::printable(fault));
    }
    sendError(protocol::kErrorRefused, text);
    // The file that belongs to a PUT is on its way.
    return header.type != FrameType::kPut;
}

FileSource Session::openSource(const std::string& path) const {
    if (grant.role != Role::kReader) {
        return FileSource(path);
    }
    try {
        return FileSource(path, pathprefix::openBelow(grant.prefixes, path));
    } catch (const pathprefix::Outside&) {
        throw;
    } catch (const FileError&) {
        throw;
    } catch (const CException& fault) {
        throw FileError("Can not open \"" + path + "\": " + fault.getErrMsg() + ".");
    }
}

void Session::announcePeer(const std::string& certificates) {
    if (certificates.empty() || certificates.size() > kMaxCertificateBytes) {
        throw CException("the certificate is too large to be watched over");
    }
    const std::uint32_t length = htonl(static_cast<std::uint32_t>(certificates.size()));
    std::string message(1, kAuthenticated);
    message.append(reinterpret_cast<const char*>(&length), sizeof length);
    tellListener(message + certificates);
}

std::string Session::nextRequestId() {
    return std::to_string(::getpid()) + "-" + std::to_string(++requestCount);
}

void Session::recordRequest(const char* request, const std::string& what,
                            const std::function<void(const AuditLog&)>& write) {
    audit.request = request;
    audit.what = what;
    audit.id = nextRequestId();
    try {
        write(AuditLog(jobSettings.auditFile));
    } catch (const CException& fault) {
        throw AuditFault("the audit of this node cannot be written, so nothing is done: " +
                         fault.getErrMsg());
    }
}

void Session::beginAudit(const char* request, const std::string& what) {
    recordRequest(request, what,
                  [this](const AuditLog& written) { written.append(audit, "start", "", 0); });
    auditOpen = true;
}

void Session::auditWhole(const char* request, const std::string& result) {
    recordRequest(request, "", [&](const AuditLog& written) {
        written.appendWhole(audit, result, elapsedMs());
    });
}

void Session::endAudit(const std::string& result) {
    if (!auditOpen) {
        return;
    }
    auditOpen = false;
    const std::string fault =
        AuditLog(jobSettings.auditFile).tryAppend(audit, "end", result, elapsedMs());
    if (!fault.empty()) {
        log.error("audit: " + Text::printable(fault));
    }
}
