#include "LintReport.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>

#include "ConfigLineReader.h"
#include "FileTrust.h"
#include "Posix.h"

namespace {

constexpr char kBlanks[] = " \t";

}  // namespace

bool LintReport::open(const std::string& name) {
    fileName = name;
    const Posix::File file = Posix::openFile(name, "re");
    struct stat status {};
    if (!file || ::fstat(::fileno(file.get()), &status) != 0) {
        error(0, std::string("cannot be opened: ") + std::strerror(errno));
        return false;
    }
    if (S_ISDIR(status.st_mode)) {
        error(0, "is a directory");
        return false;
    }
    ConfigLineReader reader(file.get());
    int number = 0;
    int tooLong = 0;
    bool continued = false;
    bool returns = false;
    for (LintLine line; reader.next(line.text); lines.push_back(line)) {
        line.number = continued ? number : ++number;
        const bool isPart = !reader.hadNewline() &&
                            line.text.size() == std::size_t{ConfigLineReader::kBufferBytes} - 1;
        // A line of exactly 511 bytes is followed by an empty piece, which does no harm.
        if (continued && !line.text.empty() && number != tooLong) {
            tooLong = number;
            warning(number,
                    "the line is longer than 511 bytes: its rest is read as a line of its own");
        }
        continued = isPart;
        if (!returns && !line.text.empty() && line.text.back() == '\r') {
            returns = true;
            warning(number, "the line ends in a carriage return, which belongs to its value");
        }
    }
    if (std::ferror(file.get()) != 0) {
        error(0, std::string("cannot be read: ") + std::strerror(errno));
        return false;
    }
    return true;
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
