#pragma once

#include <string>

#include "EventLog.h"
#include "UniqueFd.h"

// The agent's log: syslog (facility daemon), or a file that is appended to. Each entry is one
// write, so that the listener and its sessions can share the file. Not for use from several
// threads.
class AgentLog : public EventLog {
public:
    // syslog until told otherwise.
    AgentLog();
    ~AgentLog() override;

    // Opens (again) the file named; an empty name means syslog. On failure the log stays where it
    // was and the reason is returned; otherwise the text is empty.
    std::string open(const std::string& fileName);

    void write(Level level, const std::string& text) const override;
    int descriptor() const override { return file.get(); }

private:
    UniqueFd file;
};
