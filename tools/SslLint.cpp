#include <cstdio>
#include <map>

#include "CShellConfigReader.h"
#include "ConfigLineReader.h"
#include "LintReport.h"
#include "Posix.h"
#include "Text.h"

namespace {

struct Setting {
    int line = 0;
    std::string value;
};

// The shell's reader gives no line numbers for this file, so it gets one line at a time.
bool acceptedByShell(const LintLine& line, LintReport& report) {
    std::string text = line.text;
    const Posix::File stream(::fmemopen(text.data(), text.size(), "r"));
    if (!stream) {
        return false;
    }
    ConfigErrorCollector errors;
    CShellConfigReader::readSslConfig(stream.get(), &errors);
    for (const ConfigError* error : errors.getErrorList()) {
        report.error(line.number, error->getErrorMessage());
    }
    return errors.getSize() == 0;
}

std::map<std::string, Setting> readSettings(LintReport& report) {
    std::map<std::string, Setting> settings;
    for (const LintLine& line : report.getLines()) {
        std::string key;
        std::string value;
        if (ConfigLineReader::isSkipped(line.text)) {
            continue;
        }
        ConfigLineReader::splitSetting(line.text, key, value);
        if (hasOuterBlank(key) || hasOuterBlank(value)) {
            report.warning(line.number, "blanks around \"=\" belong to the key or the value");
        }
        if (!acceptedByShell(line, report)) {
            continue;
        }
        Text::toUpper(key);
        const auto inserted = settings.emplace(key, Setting{line.number, value});
        if (!inserted.second) {
            report.warning(line.number, key + " stands in line " +
                                            std::to_string(inserted.first->second.line) +
                                            " already; this one counts");
            inserted.first->second = {line.number, value};
        }
        if (!value.empty() && value.front() != '/') {
            report.warning(line.number, "\"" + value +
                                            "\" is taken from the directory in which "
                                            "kelsh is started");
        }
    }
    return settings;
}

}  // namespace

void lintSslFile(LintReport& report) {
    const std::map<std::string, Setting> settings = readSettings(report);
    const auto certificate = settings.find("CERTIFICATE_FILE");
    if (certificate == settings.end() || certificate->second.value.empty()) {
        report.error(certificate == settings.end() ? 0 : certificate->second.line,
                     "CERTIFICATE_FILE names no file: no node can be reached");
        return;
    }
    const auto found = settings.find("PRIVATE_KEY_FILE");
    const Setting key = found == settings.end() ? Setting{} : found->second;
    lintCertificates(report, certificate->second.value, certificate->second.line, key.value,
                     key.line);
}
