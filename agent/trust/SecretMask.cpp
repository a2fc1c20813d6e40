#include "SecretMask.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "Text.h"

namespace secretmask {

namespace {

constexpr char kMask[] = "***";
constexpr char kTool[] = "ipmitool";
constexpr int kMaxDepth = 4;
constexpr char kSeparators[] = " \t\n;&|<>()";

struct Word {
    std::size_t begin;
    std::size_t end;
    std::string text;            // without quotes
    bool runsSomething = false;  // holds "$(" or a backquote that the shell acts on
    bool startsCommand = false;
};

bool isSeparator(char c) {
    return std::strchr(kSeparators, c) != nullptr && c != '\0';
}

// One word as /bin/sh splits it. Not a shell: what it does not understand, it takes as text.
Word readWord(const std::string& line, std::size_t begin) {
    Word word{begin, begin, "", false, false};
    char quote = '\0';
    std::size_t at = begin;
    for (; at < line.size(); ++at) {
        const char c = line[at];
        if (quote == '\'') {
            if (c == '\'') {
                quote = '\0';
            } else {
                word.text += c;
            }
            continue;
        }
        if (c == '`' || (c == '$' && at + 1 < line.size() && line[at + 1] == '(')) {
            word.runsSomething = true;
        }
        if (c == '\\' && at + 1 < line.size()) {
            word.text += line[++at];
        } else if (c == '"') {
            quote = quote == '"' ? '\0' : '"';
        } else if (c == '\'' && quote == '\0') {
            quote = '\'';
        } else if (quote == '\0' && isSeparator(c)) {
            break;
        } else {
            word.text += c;
        }
    }
    // A quote without its end: the shell refuses the line, so the rest may as well be shown.
    word.runsSomething = word.runsSomething || quote != '\0';
    word.end = at;
    return word;
}

std::vector<Word> splitWords(const std::string& line) {
    std::vector<Word> words;
    bool starts = true;
    std::size_t at = 0;
    while (at < line.size()) {
        if (isSeparator(line[at])) {
            starts = starts || (line[at] != ' ' && line[at] != '\t');
            ++at;
            continue;
        }
        words.push_back(readWord(line, at));
        words.back().startsCommand = starts;
        starts = false;
        at = words.back().end;
    }
    return words;
}

// "-P", also behind flags without a value in the same word: "-vP".
bool isOptionWithSecret(const std::string& text, std::size_t& valueAt) {
    if (text.size() < 2 || text[0] != '-' || text[1] == '-') {
        return false;
    }
    const std::size_t at = text.find_first_not_of("vcEha", 1);
    if (at == std::string::npos || std::strchr("Pky", text[at]) == nullptr) {
        return false;
    }
    valueAt = at + 1;
    return true;
}

// How much of the word itself is to be shown before a secret in it; npos: there is none.
std::size_t secretInside(const std::string& text) {
    constexpr std::array<const char*, 5> kBefore = {
        "--password=", "IPMI_PASSWORD=", "IPMITOOL_PASSWORD=", "IPMI_KGKEY=", "IPMITOOL_KGKEY="};
    for (const char* const before : kBefore) {
        if (Text::startsWith(text, before)) {
            return std::strlen(before);
        }
    }
    std::size_t valueAt = 0;
    return isOptionWithSecret(text, valueAt) && valueAt < text.size() ? valueAt : std::string::npos;
}

bool announcesSecret(const std::vector<Word>& words, std::size_t at) {
    std::size_t valueAt = 0;
    if (at == 0 || words[at].startsCommand) {
        return false;
    }
    const std::string& before = words[at - 1].text;
    if (before == "--password" ||
        (isOptionWithSecret(before, valueAt) && valueAt == before.size())) {
        return true;
    }
    // "user set password 2 secret", "user test 2 16 secret"
    return (at >= 3 && words[at - 3].text == "set" && words[at - 2].text == "password") ||
           (at >= 4 && words[at - 4].text == "user" && words[at - 3].text == "test");
}

bool isIpmitool(const std::string& text) {
    constexpr std::size_t kLength = sizeof kTool - 1;
    return text.size() >= kLength && text.compare(text.size() - kLength, kLength, kTool) == 0;
}

// For each word, whether the command it belongs to is one of ipmitool.
std::vector<bool> findCommandsOfTool(const std::vector<Word>& words) {
    std::vector<bool> belongs(words.size(), false);
    for (std::size_t begin = 0; begin < words.size();) {
        std::size_t end = begin + 1;
        while (end < words.size() && !words[end].startsCommand) {
            ++end;
        }
        const auto first = words.begin() + static_cast<std::ptrdiff_t>(begin);
        const auto last = words.begin() + static_cast<std::ptrdiff_t>(end);
        const bool ofTool =
            std::any_of(first, last, [](const Word& word) { return isIpmitool(word.text); });
        std::fill(belongs.begin() + static_cast<std::ptrdiff_t>(begin),
                  belongs.begin() + static_cast<std::ptrdiff_t>(end), ofTool);
        begin = end;
    }
    return belongs;
}

std::string maskLine(const std::string& line, int depth);

// What to show in place of a word; empty: the word as it is.
std::string replacementFor(const std::vector<Word>& words, std::size_t at, bool ofTool, int depth) {
    const Word& word = words[at];
    if (word.text.find(kTool) != std::string::npos &&
        word.text.find_first_of(kSeparators) != std::string::npos && depth < kMaxDepth) {
        // A command line within quotes, as behind "sh -c".
        const std::string masked = maskLine(word.text, depth + 1);
        return masked == word.text ? "" : "'" + masked + "'";
    }
    if (!ofTool || word.runsSomething) {
        return "";
    }
    if (announcesSecret(words, at)) {
        return kMask;
    }
    const std::size_t inside = secretInside(word.text);
    return inside == std::string::npos ? "" : word.text.substr(0, inside) + kMask;
}

std::string maskLine(const std::string& line, int depth) {
    const std::vector<Word> words = splitWords(line);
    const std::vector<bool> ofTool = findCommandsOfTool(words);
    std::string masked;
    std::size_t done = 0;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::string shown = replacementFor(words, i, ofTool[i], depth);
        if (!shown.empty()) {
            masked.append(line, done, words[i].begin - done).append(shown);
            done = words[i].end;
        }
    }
    return masked.append(line, done, std::string::npos);
}

}  // namespace

std::string mask(const std::string& commandLine) {
    return commandLine.find(kTool) == std::string::npos ? commandLine : maskLine(commandLine, 0);
}

}  // namespace secretmask
