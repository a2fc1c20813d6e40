#include "ConfigError.h"

#include <utility>

ConfigError::ConfigError(int lineNumber, CONFIGERROR_LEVEL errorLevel, std::string message)
    : line(lineNumber), level(errorLevel), errorMessage(std::move(message)) {}

ConfigError::ConfigError(int lineNumber, std::string message)
    : ConfigError(lineNumber, CONFIG_ERROR, std::move(message)) {}

ConfigError::~ConfigError() = default;

int ConfigError::getLine() const {
    return line;
}

CONFIGERROR_LEVEL ConfigError::getLevel() const {
    return level;
}

std::string ConfigError::getErrorMessage() const {
    return errorMessage;
}

std::string ConfigError::toString() const {
    if (line == 0) {
        return errorMessage;
    }
    return "Line:" + std::to_string(line) + ", " + errorMessage;
}
