#include "ConfigErrorCollector.h"

#include <algorithm>
#include <memory>
#include <utility>

ConfigErrorCollector::ConfigErrorCollector() = default;

ConfigErrorCollector::~ConfigErrorCollector() {
    clear();
}

void ConfigErrorCollector::addError(ConfigError* error) {
    std::unique_ptr<ConfigError> owned(error);
    errors.push_back(error);
    static_cast<void>(owned.release());
}

void ConfigErrorCollector::addError(int line, CONFIGERROR_LEVEL level, std::string message) {
    addError(new ConfigError(line, level, std::move(message)));
}

void ConfigErrorCollector::addError(int line, std::string message) {
    addError(line, CONFIG_ERROR, std::move(message));
}

int ConfigErrorCollector::getSize() const {
    return static_cast<int>(errors.size());
}

int ConfigErrorCollector::getSize(CONFIGERROR_LEVEL level) const {
    return static_cast<int>(
        std::count_if(errors.begin(), errors.end(),
                      [level](const ConfigError* error) { return error->getLevel() == level; }));
}

std::list<ConfigError*> ConfigErrorCollector::getErrorList() const {
    return errors;
}

void ConfigErrorCollector::clear() {
    for (const ConfigError* error : errors) {
        delete error;
    }
    errors.clear();
}

std::string ConfigErrorCollector::toString() const {
    std::string text;
    for (const ConfigError* error : errors) {
        text += error->toString() + "\n";
    }
    return text;
}

std::string ConfigErrorCollector::toString(CONFIGERROR_LEVEL level) const {
    std::string text;
    for (const ConfigError* error : errors) {
        if (error->getLevel() == level) {
            text += error->toString() + "\n";
        }
    }
    return text;
}
