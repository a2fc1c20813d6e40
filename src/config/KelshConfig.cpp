#include "KelshConfig.h"

#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <vector>

#include "ConfigErrorCollector.h"
#include "ConfigLineReader.h"
#include "FileTrust.h"
#include "Posix.h"
#include "Text.h"

namespace {

struct Value {
    const char* text;
    void (*choose)(KelshConfig&);
};

struct Key {
    const char* name;
    std::vector<Value> values;
};

// Every key with all its values, the one that holds without the key first.
const std::vector<Key>& keys() {
    static const std::vector<Key> all{
        {"INTERFACE",
         {{"classic", [](KelshConfig& c) { c.interface = KelshConfig::Interface::kClassic; }},
          {"modern", [](KelshConfig& c) { c.interface = KelshConfig::Interface::kModern; }}}},
        {"EXIT_STATUS",
         {{"any", [](KelshConfig& c) { c.exitStatus = KelshConfig::ExitStatus::kAny; }},
          {"last", [](KelshConfig& c) { c.exitStatus = KelshConfig::ExitStatus::kLast; }}}},
        {"FOLD",
         {{"auto", [](KelshConfig& c) { c.fold = KelshConfig::Choice::kAuto; }},
          {"never", [](KelshConfig& c) { c.fold = KelshConfig::Choice::kNever; }},
          {"always", [](KelshConfig& c) { c.fold = KelshConfig::Choice::kAlways; }}}},
        {"DIGEST",
         {{"auto", [](KelshConfig& c) { c.digest = KelshConfig::Choice::kAuto; }},
          {"always", [](KelshConfig& c) { c.digest = KelshConfig::Choice::kAlways; }},
          {"never", [](KelshConfig& c) { c.digest = KelshConfig::Choice::kNever; }}}},
        {"AD_HOC",
         {{"yes", [](KelshConfig& c) { c.adHoc = true; }},
          {"no", [](KelshConfig& c) { c.adHoc = false; }}}},
    };
    return all;
}

const Key* findKey(const std::string& name) {
    for (const Key& key : keys()) {
        if (name == key.name) {
            return &key;
        }
    }
    return nullptr;
}

void choose(KelshConfig& config, const Key& key, const std::string& value, int line,
            ConfigErrorCollector& errors) {
    std::string known;
    for (const Value& candidate : key.values) {
        if (value == candidate.text) {
            candidate.choose(config);
            return;
        }
        known += (known.empty() ? "" : ", ") + std::string(candidate.text);
    }
    errors.addError(line, std::string(key.name) + " cannot be \"" + Text::printable(value) +
                              "\". Its values are: " + known);
}

}  // namespace

KelshConfig KelshConfig::read(const std::string& fileName, ConfigErrorCollector* errors) {
    const Posix::File file = Posix::openFile(fileName, "re");
    if (!file) {
        if (errno != ENOENT) {
            errors->addError(0, fileName + " cannot be opened: " + std::strerror(errno));
        }
        return {};
    }
    struct stat status {};
    if (::fstat(::fileno(file.get()), &status) != 0 || !S_ISREG(status.st_mode)) {
        errors->addError(0, fileName + " is no file");
        return {};
    }
    FileTrust trust;
    trust.examine(fileName);
    for (const FileTrust::Finding& finding : trust.findings()) {
        errors->addError(0, finding.text());
    }
    KelshConfig config = read(file.get(), errors);
    if (std::ferror(file.get()) != 0) {
        errors->addError(0, fileName + " cannot be read to its end");
    }
    return config;
}

KelshConfig KelshConfig::read(FILE* stream, ConfigErrorCollector* errors) {
    KelshConfig config;
    ConfigLineReader reader(stream);
    std::string line;
    std::string name;
    std::string value;
    while (reader.next(line)) {
        if (ConfigLineReader::isSkipped(line)) {
            continue;
        }
        if (!ConfigLineReader::splitSetting(line, name, value)) {
            errors->addError(reader.lineNumber(),
                             "\"" + Text::printable(line) + "\" is not KEY=VALUE");
            continue;
        }
        Text::toUpper(name);
        if (const Key* key = findKey(name)) {
            choose(config, *key, value, reader.lineNumber(), *errors);
        } else {
            errors->addError(reader.lineNumber(), CONFIG_WARNING,
                             "unknown key \"" + Text::printable(name) + "\"");
        }
    }
    return config;
}
