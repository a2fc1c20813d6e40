#include <map>

#include "ConfigLineReader.h"
#include "KelshConfig.h"
#include "LintReport.h"
#include "Text.h"

namespace {

void findRepeatedKeys(LintReport& report) {
    std::map<std::string, int> lines;
    for (const LintLine& line : report.getLines()) {
        std::string key;
        std::string value;
        if (ConfigLineReader::isSkipped(line.text) ||
            !ConfigLineReader::splitSetting(line.text, key, value)) {
            continue;
        }
        Text::toUpper(key);
        const auto [first, isNew] = lines.emplace(key, line.number);
        if (!isNew) {
            report.warning(line.number, key + " stands in line " + std::to_string(first->second) +
                                            " already; this one counts");
            first->second = line.number;
        }
    }
}

}  // namespace

void lintKelshFile(LintReport& report) {
    ConfigErrorCollector errors;
    static_cast<void>(KelshConfig::read(report.getFileName(), &errors));
    report.add(errors);
    // Of the warnings of this reader, unlike the others', each is about the file.
    for (const ConfigError* error : errors.getErrorList()) {
        if (error->getLevel() == CONFIG_WARNING) {
            report.warning(error->getLine(), error->getErrorMessage());
        }
    }
    findRepeatedKeys(report);
}
