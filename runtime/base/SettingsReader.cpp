#include "SettingsReader.h"

#include <cerrno>
#include <cstring>
#include <set>

#include "ConfigLineReader.h"

std::string ConfigFault::describe(const std::string& fileName) const {
    const std::string place = line > 0 ? ", line " + std::to_string(line) : "";
    return fileName + place + ": " + text;
}

void readSettings(FILE* stream, const SettingLines& lines,
                  const std::function<std::string(const std::string&, const std::string&)>& apply,
                  std::vector<ConfigFault>& faults) {
    ConfigLineReader reader(stream);
    std::set<std::string> seen;
    std::string line;
    bool continued = false;
    while (reader.next(line)) {
        // The rest of a line that was too long is not a setting of its own.
        const bool isRest = continued;
        continued = !reader.hadNewline() && line.size() == ConfigLineReader::kBufferBytes - 1;
        if (isRest) {
            continue;
        }
        std::string key;
        std::string value;
        std::string reason;
        if (continued) {
            reason = "the line is longer than 511 characters";
        } else if (ConfigLineReader::isSkipped(line)) {
            continue;
        } else if (!ConfigLineReader::splitSetting(line, key, value)) {
            reason = "\"" + line + "\" is not " + lines.form;
        } else if (!seen.insert(key).second) {
            reason = key + lines.repeated;
        } else {
            reason = apply(key, value);
        }
        if (!reason.empty()) {
            faults.push_back({reader.lineNumber(), reason});
        }
    }
    if (std::ferror(stream) != 0) {
        faults.push_back({0, std::string("cannot be read: ") + std::strerror(errno)});
    }
}
