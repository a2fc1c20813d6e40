#include "SessionLine.h"

#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <utility>

#include "CException.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// The listener is never busy for so long; one that is stopped must not keep a session waiting.
constexpr milliseconds kPatience(5000);
constexpr char kEndOfAnswer = '\n';

// False when nothing happens in time.
bool awaitEvents(int descriptor, short events, Clock::time_point limit) {
    for (;;) {
        const auto left = std::chrono::ceil<milliseconds>(limit - Clock::now()).count();
        pollfd watched{descriptor, events, 0};
        const int found = ::poll(&watched, 1, left > 0 ? static_cast<int>(left) : 0);
        if (found >= 0 || errno != EINTR) {
            return found > 0;
        }
    }
}

}  // namespace

SessionLine::SessionLine(UniqueFd toListener) : socket(std::move(toListener)) {}

bool SessionLine::tell(SessionReport::Kind kind, const std::string& body) {
    const std::uint32_t length = htonl(static_cast<std::uint32_t>(body.size()));
    std::string bytes(1, static_cast<char>(kind));
    bytes.append(reinterpret_cast<const char*>(&length), sizeof length);
    bytes += body;
    const Clock::time_point limit = Clock::now() + kPatience;
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t put = ::send(socket.get(), bytes.data() + done, bytes.size() - done,
                                   MSG_NOSIGNAL | MSG_DONTWAIT);
        if (put >= 0) {
            done += static_cast<std::size_t>(put);
        } else if (errno == EAGAIN) {
            if (!awaitEvents(socket.get(), POLLOUT, limit)) {
                return false;
            }
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

void SessionLine::tellMaster(bool hasRole, const std::string& fingerprint,
                             const std::string& certificates) {
    const std::string body = (hasRole ? '1' : '0') + fingerprint + certificates;
    if (fingerprint.size() != SessionReport::kFingerprintBytes || certificates.empty() ||
        body.size() > SessionReport::kMaxBytes) {
        throw CException("the certificate is too large to be watched over");
    }
    static_cast<void>(tell(SessionReport::Kind::kMaster, body));
}

bool SessionLine::tellFailure(const std::string& text) {
    return tell(SessionReport::Kind::kFailure, text.substr(0, SessionReport::kMaxBytes));
}

bool SessionLine::tellRefusal(const std::string& report) {
    return tell(SessionReport::Kind::kRefusal, report);
}

void SessionLine::tellUninterruptible(bool begins) {
    static_cast<void>(tell(begins ? SessionReport::Kind::kUninterruptibleBegins
                                  : SessionReport::Kind::kUninterruptibleEnds,
                           ""));
}

std::string SessionLine::awaitLeave() {
    const Clock::time_point limit = Clock::now() + kPatience;
    std::string answer;
    while (answer.empty() || answer.back() != kEndOfAnswer) {
        char bytes[512];
        const ssize_t got = ::recv(socket.get(), bytes, sizeof bytes, MSG_DONTWAIT);
        if (got > 0) {
            answer.append(bytes, static_cast<std::size_t>(got));
        } else if (got == 0 || (errno != EAGAIN && errno != EINTR) ||
                   !awaitEvents(socket.get(), POLLIN, limit)) {
            // It could be one that is just being revoked.
            return "the agent's listener does not answer; try again later";
        }
    }
    answer.pop_back();
    return answer;
}

std::optional<SessionReport> SessionReports::next() {
    std::uint32_t length = 0;
    constexpr std::size_t headerBytes = 1 + sizeof length;
    if (told.size() < headerBytes) {
        return std::nullopt;
    }
    std::memcpy(&length, &told[1], sizeof length);
    length = ntohl(length);
    if (length > SessionReport::kMaxBytes) {
        // No session says that; what follows is not to be understood either.
        told.clear();
        return std::nullopt;
    }
    if (told.size() < headerBytes + length) {
        return std::nullopt;
    }
    SessionReport report;
    report.kind = static_cast<SessionReport::Kind>(told[0]);
    const std::string body = told.substr(headerBytes, length);
    told.erase(0, headerBytes + length);
    if (report.kind == SessionReport::Kind::kMaster &&
        body.size() > SessionReport::kFingerprintBytes) {
        report.hasRole = body[0] == '1';
        report.fingerprint = body.substr(1, SessionReport::kFingerprintBytes);
        report.certificates = body.substr(1 + SessionReport::kFingerprintBytes);
    } else {
        report.text = body;
    }
    return report;
}

void SessionReports::answer(int descriptor, const std::string& refusal) {
    const std::string line = refusal + kEndOfAnswer;
    // Into a buffer that holds nothing else.
    static_cast<void>(::send(descriptor, line.data(), line.size(), MSG_NOSIGNAL | MSG_DONTWAIT));
}
