#pragma once

#include <list>
#include <string>

#include "ConfigError.h"

// The findings of one check, in the order made. Whoever starts a check makes a collector, passes it
// down by pointer, reads it and destroys it. A check prints nothing itself. Owns its entries. One
// thread at a time.
class ConfigErrorCollector {
public:
    ConfigErrorCollector();
    ConfigErrorCollector(const ConfigErrorCollector&) = delete;
    ConfigErrorCollector& operator=(const ConfigErrorCollector&) = delete;
    virtual ~ConfigErrorCollector();

    // Takes ownership.
    void addError(ConfigError* error);
    void addError(int line, CONFIGERROR_LEVEL level, std::string message);
    // Level CONFIG_ERROR.
    void addError(int line, std::string message);

    // Entries of every level, or of one.
    int getSize() const;
    int getSize(CONFIGERROR_LEVEL level) const;

    // A copy of the list; the entries still belong to the collector.
    std::list<ConfigError*> getErrorList() const;

    // Deletes every entry.
    void clear();

    // Each entry's text and a newline, for every level or for one.
    std::string toString() const;
    std::string toString(CONFIGERROR_LEVEL level) const;

private:
    std::list<ConfigError*> errors;
};
