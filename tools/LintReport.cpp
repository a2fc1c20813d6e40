#include "LintReport.h"

#include <algorithm>
#include <cstring>

#include "FileTrust.h"

namespace {

constexpr char kBlanks[] = " \t";

}  // namespace

bool LintReport::open(const std::string& name) {
    fileName = name;
    ConfigFileLines file;
    const std::string reason = file.read(name);
    lines = file.getLines();
    for (const LintLine& found : file.getWarnings()) {
        warning(found.number, found.text);
    }
    if (!reason.empty()) {
        error(0, reason);
    }
    return reason.empty();
}

void LintReport::error(int line, const std::string& text) {
    findings.push_back({line, Level::kError, text});
}

void LintReport::warning(int line, const std::string& text) {
    findings.push_back({line, Level::kWarning, text});
}

void LintReport::add(const ConfigErrorCollector& errors) {
    for (const ConfigError* found : errors.getErrorList()) {
        if (found->getLevel() != CONFIG_ERROR) {
            continue;
        }
        const int piece = found->getLine();
        const bool known = piece > 0 && static_cast<std::size_t>(piece) <= lines.size();
        error(known ? lines[static_cast<std::size_t>(piece) - 1].number : piece,
              found->getErrorMessage());
    }
}

void LintReport::warnOfLooseFiles(int line, const std::string& file) {
    FileTrust trust;
    trust.examine(file);
    for (const FileTrust::Finding& finding : trust.findings()) {
        warning(line, finding.text());
    }
}

void LintReport::print(std::ostream& out) const {
    std::vector<Finding> sorted = findings;
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const Finding& one, const Finding& two) { return one.line < two.line; });
    for (const Finding& finding : sorted) {
        out << fileName << ':';
        if (finding.line > 0) {
            out << finding.line << ':';
        }
        out << (finding.level == Level::kError ? " error: " : " warning: ") << finding.text << '\n';
    }
}

bool LintReport::has(Level level) const {
    return std::any_of(findings.begin(), findings.end(),
                       [=](const Finding& finding) { return finding.level == level; });
}

bool hasOuterBlank(const std::string& text) {
    return !text.empty() && (std::strchr(kBlanks, text.front()) != nullptr ||
                             std::strchr(kBlanks, text.back()) != nullptr);
}
