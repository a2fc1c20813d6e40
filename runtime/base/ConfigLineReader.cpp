#include "ConfigLineReader.h"

#include <cerrno>

ConfigLineReader::ConfigLineReader(FILE* input) : stream(input) {}

bool ConfigLineReader::next(std::string& line) {
    char buffer[kBufferBytes];
    while (std::fgets(buffer, sizeof buffer, stream) == nullptr) {
        if (std::ferror(stream) == 0 || errno != EINTR) {
            return false;
        }
        std::clearerr(stream);
    }
    ++number;
    line = buffer;
    newline = !line.empty() && line.back() == '\n';
    if (newline) {
        line.pop_back();
    }
    return true;
}

bool ConfigLineReader::isSkipped(const std::string& line) {
    return line.empty() || line.front() == '#';
}

bool ConfigLineReader::splitSetting(const std::string& line, std::string& key, std::string& value) {
    const std::string::size_type equals = line.find('=');
    if (equals == std::string::npos) {
        return false;
    }
    key = line.substr(0, equals);
    value = line.substr(equals + 1);
    return true;
}
