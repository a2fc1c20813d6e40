#pragma once

#include <string>

// The log of a program. Each entry is one line. The implementation says whether several threads may
// use it. After fork both processes write to the same place.
class EventLog {
public:
    enum class Level { kInfo, kWarning, kError };

    EventLog() = default;
    EventLog(const EventLog&) = delete;
    EventLog& operator=(const EventLog&) = delete;
    virtual ~EventLog() = default;

    // Control characters never reach the log. The caller makes text from outside safe with
    // Text::printable(). errno is not changed.
    virtual void write(Level level, const std::string& text) const = 0;
    // The descriptor of the log file, for a process that must keep it open; -1 when there is none.
    virtual int descriptor() const = 0;

    void info(const std::string& text) const { write(Level::kInfo, text); }
    void warning(const std::string& text) const { write(Level::kWarning, text); }
    void error(const std::string& text) const { write(Level::kError, text); }
};
