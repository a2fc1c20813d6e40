#pragma once

#include <string>

enum CONFIGERROR_LEVEL : int {
    CONFIG_WARNING = 1,  // reported, stops nothing
    CONFIG_ERROR = 2,    // the file or line has failed its check
};

// One finding about a configuration file or a typed line; immutable.
class ConfigError {
public:
    // line is the number in the file, or 0 when the finding is not tied to a line.
    ConfigError(int line, CONFIGERROR_LEVEL level, std::string message);
    // The same with CONFIG_ERROR.
    ConfigError(int line, std::string message);
    virtual ~ConfigError();

    int getLine() const;
    CONFIGERROR_LEVEL getLevel() const;
    std::string getErrorMessage() const;

    // "Line:12, message", or the bare message for line 0.
    std::string toString() const;

private:
    int line;
    CONFIGERROR_LEVEL level;
    std::string errorMessage;
};
