#include "AgentLog.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>
#include <utility>

#include "Text.h"
#include "TimeStamp.h"

namespace {

const char* levelName(AgentLog::Level level) {
    switch (level) {
        case AgentLog::Level::kWarning:
            return "warning ";
        case AgentLog::Level::kError:
            return "error ";
        case AgentLog::Level::kInfo:
            break;
    }
    return "";
}

int syslogPriority(AgentLog::Level level) {
    switch (level) {
        case AgentLog::Level::kWarning:
            return LOG_WARNING;
        case AgentLog::Level::kError:
            return LOG_ERR;
        case AgentLog::Level::kInfo:
            break;
    }
    return LOG_INFO;
}

// The last line of defence: whoever forgot to escape must not be able to forge a line.
std::string withoutControls(const std::string& text) {
    std::string clean;
    clean.reserve(text.size());
    for (const char c : text) {
        if (Text::isPlain(c)) {
            clean += c;
        } else {
            clean += "\\x";
            Text::appendHex(clean, c);
        }
    }
    return clean;
}

}  // namespace

AgentLog::AgentLog() {
    ::openlog("kelnode", LOG_PID | LOG_NDELAY, LOG_DAEMON);
}

AgentLog::~AgentLog() {
    ::closelog();
}

std::string AgentLog::open(const std::string& fileName) {
    if (fileName.empty()) {
        file.reset();
        return "";
    }
    UniqueFd opened(::open(fileName.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY,
                           S_IRUSR | S_IWUSR | S_IRGRP));
    if (!opened) {
        return "cannot open the log file " + fileName + ": " + std::strerror(errno);
    }
    file = std::move(opened);
    return "";
}

void AgentLog::write(Level level, const std::string& text) const {
    const int savedErrno = errno;
    const std::string clean = withoutControls(text);
    if (!file) {
        ::syslog(syslogPriority(level), "%s", clean.c_str());
        errno = savedErrno;
        return;
    }
    const std::string line = timestamp::now() + " kelnode[" + std::to_string(::getpid()) +
                             "]: " + levelName(level) + clean + "\n";
    // A log on a full disk must not stop the agent; the rest of a short write is given up.
    ssize_t written = 0;
    do {
        written = ::write(file.get(), line.data(), line.size());
    } while (written < 0 && errno == EINTR);
    errno = savedErrno;
}
