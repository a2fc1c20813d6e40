#pragma once

#include <string>

#include "UniqueFd.h"

// The agent's log: syslog (facility daemon), or a file that is appended to. Each entry is one line
// and one write, so that the listener and its sessions can share the file. Copies of it made by
// fork go on writing to the same place. Not for use from several threads.
class AgentLog {
public:
    enum class Level { kInfo, kWarning, kError };

    // syslog until told otherwise.
    AgentLog();
    ~AgentLog();
    AgentLog(const AgentLog&) = delete;
    AgentLog& operator=(const AgentLog&) = delete;

    // Opens (again) the file named; an empty name means syslog. On failure the log stays where it
    // was and the reason is returned; otherwise the text is empty.
    std::string open(const std::string& fileName);

    // text is made safe with escape() except for what the caller has escaped already: control
    // characters never reach the log.
    void write(Level level, const std::string& text) const;
    void info(const std::string& text) const { write(Level::kInfo, text); }
    void warning(const std::string& text) const { write(Level::kWarning, text); }
    void error(const std::string& text) const { write(Level::kError, text); }

    // Text from outside as it may stand in a log line: printable ASCII, with backslash and double
    // quote behind a backslash, \n, \r, \t, and every other byte as \xHH. At most maxBytes bytes of
    // the text are shown; what was left out is counted at the end.
    static std::string escape(const std::string& text, std::string::size_type maxBytes = 1024);

    // Now, in UTC, as it stands in logs: 2026-11-21T20:30:00.000Z.
    static std::string timeStamp();

    // Of the log file; -1 for syslog.
    int descriptor() const { return file.get(); }

private:
    UniqueFd file;
};
