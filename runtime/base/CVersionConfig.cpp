#include "CVersionConfig.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "CCannotOpenFileException.h"
#include "CUtil.h"
#include "ConfigLineReader.h"

CVersionConfig::CVersionConfig(const char* fileName) {
    if (fileName == nullptr) {
        throw CCannotOpenFileException("No version file is named.");
    }
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(fileName, "re"), &std::fclose);
    if (!file) {
        const int error = errno;
        throw CCannotOpenFileException("Can not open \"" + std::string(fileName) +
                                       "\": " + std::strerror(error));
    }
    ConfigLineReader reader(file.get());
    std::string line;
    std::string key;
    std::string value;
    while (reader.next(line)) {
        if (ConfigLineReader::isSkipped(line) ||
            !ConfigLineReader::splitSetting(line, key, value)) {
            continue;
        }
        CUtil::trim(key);
        CUtil::toUpper(key);
        CUtil::trim(value);
        if (key == "VERSION") {
            version = value;
        } else if (key == "BUILD") {
            build = value;
        }
    }
    if (std::ferror(file.get()) != 0) {
        // A directory opens like a file and fails only here.
        throw CCannotOpenFileException("Can not read \"" + std::string(fileName) + "\".");
    }
    if (version.empty() || build.empty()) {
        throw CException("\"" + std::string(fileName) + "\" does not define VERSION and BUILD.");
    }
}

std::string CVersionConfig::getVersion() const {
    return version;
}

std::string CVersionConfig::getBuild() const {
    return build;
}
