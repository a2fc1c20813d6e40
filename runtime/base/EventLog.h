#pragma once

#include <string>

// Where a program reports what happens. Each entry is one line. Implementations say whether several
// threads may use one; copies of the process made by fork go on writing to the same place.
class EventLog {
public:
    enum class Level { kInfo, kWarning, kError };

    EventLog() = default;
    EventLog(const EventLog&) = delete;
    EventLog& operator=(const EventLog&) = delete;
    virtual ~EventLog() = default;

    // Control characters in text never reach the log; text from outside is made safe with
    // Text::printable() by the caller. errno stays as it is.
    virtual void write(Level level, const std::string& text) const = 0;
    // Of the file that is written to, so that a process can keep it open; -1 for none.
    virtual int descriptor() const = 0;

    void info(const std::string& text) const { write(Level::kInfo, text); }
    void warning(const std::string& text) const { write(Level::kWarning, text); }
    void error(const std::string& text) const { write(Level::kError, text); }
};
