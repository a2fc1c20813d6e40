#include "CVersionConfig.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "CCannotOpenFileException.h"
#include "ConfigLineReader.h"
#include "Posix.h"
#include "Text.h"

CVersionConfig::CVersionConfig(const char* fileName) {
    if (fileName == nullptr) {
        throw CCannotOpenFileException("No version file is named.");
    }
    const Posix::File file = Posix::openFile(fileName, "re");
    if (!file) {
        const int error = errno;
        throw CCannotOpenFileException("Cannot open \"" + std::string(fileName) +
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
        Text::trim(key);
        Text::toUpper(key);
        Text::trim(value);
        if (key == "VERSION") {
            version = value;
        } else if (key == "BUILD") {
            build = value;
        }
    }
    if (std::ferror(file.get()) != 0) {
        // A directory opens like a file and fails only here.
        throw CCannotOpenFileException("Cannot read \"" + std::string(fileName) + "\".");
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
