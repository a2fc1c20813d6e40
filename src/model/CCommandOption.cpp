#include "CCommandOption.h"

#include <algorithm>
#include <list>
#include <utility>

#include "CException.h"
#include "CUtil.h"

namespace {

// Returns where the value behind the name begins in the line, or npos. Only the first occurrence of
// the name counts.
std::string::size_type valueStart(const std::string& line, const std::string& dashedName) {
    const std::string::size_type found = line.find(dashedName);
    if (found == std::string::npos) {
        return std::string::npos;
    }
    const std::string::size_type end = found + dashedName.size();
    return end < line.size() && line[end] == ' ' ? end : std::string::npos;
}

}  // namespace

CCommandOption::CCommandOption(std::string shortName, std::string longName, int compulsoryType,
                               int valueType, std::string text)
    : shortOptName(std::move(shortName)),
      longOptName(std::move(longName)),
      isCompulsory(compulsoryType != 0),
      hasOptValue(valueType != 0),
      description(std::move(text)) {}

CCommandOption::CCommandOption(std::string shortName, std::string longName, int compulsoryType,
                               int valueType)
    : CCommandOption(std::move(shortName), std::move(longName), compulsoryType, valueType, "") {}

CCommandOption::~CCommandOption() = default;

std::string CCommandOption::getShortOptName() const {
    return shortOptName;
}

std::string CCommandOption::getLongOptName() const {
    return longOptName;
}

bool CCommandOption::getIsCompulsory() const {
    return isCompulsory;
}

bool CCommandOption::getHasOptValue() const {
    return hasOptValue;
}

std::string CCommandOption::getDescription() const {
    return description;
}

void CCommandOption::setDescription(std::string text) {
    description = std::move(text);
}

bool CCommandOption::equal(CCommandOption other) const {
    if (!shortOptName.empty() && shortOptName == other.shortOptName) {
        return true;
    }
    return !longOptName.empty() && longOptName == other.longOptName;
}

bool CCommandOption::operator==(const CCommandOption& other) const {
    return equal(other);
}

std::string CCommandOption::toString() const {
    std::string names;
    if (longOptName.empty() && !shortOptName.empty()) {
        names = "-" + shortOptName;
    } else if (shortOptName.empty() && !longOptName.empty()) {
        names = "--" + longOptName;
    } else {
        names = "-" + shortOptName + ", --" + longOptName;
    }
    return names + ": " + description;
}

std::string CCommandOption::getOptionValue(std::string line) const {
    if (!hasOptValue) {
        return "";
    }
    std::string::size_type start = std::string::npos;
    if (!shortOptName.empty()) {
        const std::string dashed = "-" + shortOptName;
        const std::string::size_type found = line.find(dashed);
        // A dash in front would make it the tail of a long name.
        if (found != std::string::npos && found != 0 && line[found - 1] != '-') {
            start = valueStart(line, dashed);
        }
    }
    if (!longOptName.empty()) {
        const std::string::size_type longStart = valueStart(line, "--" + longOptName);
        start = longStart != std::string::npos ? longStart : start;
    }
    if (start == std::string::npos) {
        return "";
    }
    // With the blank in front, a value that begins with a dash becomes empty.
    std::string value = " " + line.substr(start);
    value = value.substr(0, value.find(" -"));
    CUtil::trim(value);
    return value;
}

bool CCommandOption::processOption(std::string* line) const {
    std::list<std::string> words;
    CUtil::splitForTokens(words, " ", *line);
    const bool present = std::any_of(words.begin(), words.end(),
                                     [this](const std::string& word) { return isNamedBy(word); });
    if (isCompulsory && !present) {
        throw CException("Option " + bracketedNames() + " must be provided.");
    }

    std::string rest;
    for (auto word = words.begin(); word != words.end(); ++word) {
        if (!isNamedBy(*word)) {
            rest += word->find(' ') != std::string::npos ? "\"" + *word + "\" " : *word + " ";
            continue;
        }
        if (hasOptValue) {
            ++word;
            if (word == words.end() || word->front() == '-') {
                throw CException("Option " + bracketedNames() + " must have option value.");
            }
        }
    }
    if (!rest.empty()) {
        rest.pop_back();
    }
    *line = std::move(rest);
    return present;
}

bool CCommandOption::isNamedBy(const std::string& word) const {
    return (!shortOptName.empty() && word == "-" + shortOptName) ||
           (!longOptName.empty() && word == "--" + longOptName);
}

std::string CCommandOption::bracketedNames() const {
    return "[-" + shortOptName + "|--" + longOptName + "]";
}
