#include "CmdStrWithOption.h"

#include <algorithm>
#include <utility>

#include "ConfigErrorCollector.h"
#include "Text.h"

namespace {

const char kWhiteSpace[] = " \t\n\r\v\f";

struct Split {
    std::string command;
    std::string optionAndValue;
};

// The character in front of the bracket, normally a blank, belongs to neither part.
Split splitAtBracket(const std::string& line, std::string::size_type bracket) {
    Split split;
    split.command = bracket == 0 ? "" : line.substr(0, bracket - 1);
    split.optionAndValue = line.substr(bracket);
    Text::trim(split.command);
    Text::trim(split.optionAndValue);
    return split;
}

// Only the first dash counts: one inside a word leaves both parts empty.
Split splitAtDash(const std::string& line) {
    Split split;
    const std::string::size_type dash = line.find('-');
    if (dash == std::string::npos) {
        split.command = line;
    } else if (dash > 0 && line[dash - 1] == ' ' &&
               !(dash + 1 < line.size() && line[dash + 1] == ' ')) {
        split.command = line.substr(0, dash - 1);
        split.optionAndValue = line.substr(dash);
    }
    Text::trim(split.command);
    Text::trim(split.optionAndValue);
    return split;
}

std::list<std::string> splitWords(const std::string& text) {
    std::list<std::string> words;
    std::string::size_type start = text.find_first_not_of(kWhiteSpace);
    while (start != std::string::npos) {
        const std::string::size_type end = text.find_first_of(kWhiteSpace, start);
        words.push_back(text.substr(start, end - start));
        start = text.find_first_not_of(kWhiteSpace, end);
    }
    return words;
}

bool isEnclosed(const std::string& word, char open, char close) {
    return word.size() >= 2 && word.front() == open && word.back() == close;
}

std::string missingOptions(const std::list<std::string>& synopsis) {
    if (synopsis.size() == 1) {
        return "Error! One option should be provided:\n" + synopsis.front();
    }
    std::string message =
        "Error! " + std::to_string(synopsis.size()) + " options should be provided:";
    for (const std::string& word : synopsis) {
        message += "\n" + word;
    }
    return message;
}

// Removes the first word that is one of the names and, for an option with a value, the words up to
// the next option. False when there is no such word.
bool consume(std::list<std::string>& typed, const std::string& shortName,
             const std::string& longName, bool withValue) {
    const auto found = std::find_if(typed.begin(), typed.end(), [&](const std::string& word) {
        return word == shortName || word == longName;
    });
    if (found == typed.end()) {
        return false;
    }
    auto end = std::next(found);
    while (withValue && end != typed.end() && end->front() != '-') {
        ++end;
    }
    typed.erase(found, end);
    return true;
}

}  // namespace

void checkForShortAndLongOption(std::string* shortName, std::string* longName, std::string word) {
    if (Text::startsWith(word, "--")) {
        *longName = word;
    } else if (Text::startsWith(word, "-")) {
        *shortName = word;
    }
}

CmdStrWithOption::CmdStrWithOption(std::string line) : wholeLine(std::move(line)) {
    std::string::size_type bracket = wholeLine.find('{');
    if (bracket == std::string::npos) {
        bracket = wholeLine.find('[');
    }
    Split split =
        bracket == std::string::npos ? splitAtDash(wholeLine) : splitAtBracket(wholeLine, bracket);
    command = std::move(split.command);
    optionAndValue = std::move(split.optionAndValue);
    optionList = splitWords(optionAndValue);
}

CmdStrWithOption::~CmdStrWithOption() = default;

std::string CmdStrWithOption::getCommand() const {
    return command;
}

std::string CmdStrWithOption::getOptionAndValue() const {
    return optionAndValue;
}

std::list<std::string>& CmdStrWithOption::getOptionList() {
    return optionList;
}

const std::list<std::string>& CmdStrWithOption::getOptionList() const {
    return optionList;
}

bool CmdStrWithOption::hasValueOptionFormat(std::string word) const {
    Text::trim(word);
    return isEnclosed(word, '{', '}');
}

void CmdStrWithOption::checkShortLongOptionFormat(std::string* shortName, std::string* longName,
                                                  std::string word) const {
    Text::trim(word);
    if (!isEnclosed(word, '[', ']') && !isEnclosed(word, '{', '}')) {
        return;
    }
    const std::string inside = word.substr(1, word.size() - 2);
    const std::string::size_type bar = inside.find('|');
    checkForShortAndLongOption(shortName, longName, inside.substr(0, bar));
    if (bar != std::string::npos) {
        checkForShortAndLongOption(shortName, longName, inside.substr(bar + 1));
    }
}

bool CmdStrWithOption::isExecutableCommand2(std::string typedLine,
                                            ConfigErrorCollector* errors) const {
    ConfigErrorCollector unwanted;
    if (errors == nullptr) {
        errors = &unwanted;
    }
    // A synopsis may mix both kinds of brackets in any order; the constructor cuts at a brace
    // first.
    const std::string::size_type bracket = wholeLine.find_first_of("[{");
    std::string wanted = command;
    std::list<std::string> synopsis = optionList;
    if (bracket != std::string::npos) {
        Split split = splitAtBracket(wholeLine, bracket);
        wanted = std::move(split.command);
        synopsis = splitWords(split.optionAndValue);
    }

    const CmdStrWithOption typed(std::move(typedLine));
    if (typed.command != wanted) {
        return false;
    }
    if (!synopsis.empty() && typed.optionList.empty()) {
        errors->addError(0, missingOptions(synopsis));
        return false;
    }
    std::list<std::string> left = typed.optionList;
    for (const std::string& word : synopsis) {
        std::string shortName;
        std::string longName;
        checkShortLongOptionFormat(&shortName, &longName, word);
        if (!consume(left, shortName, longName, hasValueOptionFormat(word))) {
            errors->addError(0, "Error! Can not find matched option for " + word);
        }
    }
    return left.empty() && errors->getSize() == 0;
}
