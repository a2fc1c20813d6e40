#include "ModernLoop.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <list>

#include "CCmdHistory.h"
#include "ModernParser.h"
#include "Text.h"

namespace {

std::string latestThatBegins(const CCmdHistory& history, const std::string& start) {
    for (unsigned int n = history.size(); n > 0; --n) {
        std::string entry = history.getCmd(n);
        if (Text::startsWith(entry, start)) {
            return entry;
        }
    }
    return "";
}

bool isNumber(const std::string& text) {
    constexpr std::size_t kMostDigits = 9;
    return !text.empty() && text.size() <= kMostDigits &&
           std::all_of(text.begin(), text.end(), [](char c) { return Text::isDigit(c); });
}

}  // namespace

std::optional<std::string> ModernLoop::recalled(const std::string& line,
                                                const CCmdHistory& history) {
    if (!Text::startsWith(line, "!")) {
        return line;
    }
    const std::size_t end = std::min(line.find(' '), line.size());
    const std::string wanted = line.substr(1, end - 1);
    std::string entry;
    if (wanted == "!") {
        entry = history.getCmd(history.size());
    } else if (isNumber(wanted)) {
        entry =
            history.getCmd(static_cast<unsigned int>(std::strtoul(wanted.c_str(), nullptr, 10)));
    } else if (!wanted.empty()) {
        entry = latestThatBegins(history, wanted);
    }
    return entry.empty() ? std::nullopt : std::optional<std::string>(entry + line.substr(end));
}

std::optional<int> ModernLoop::processLine(std::string& text, CCmdHistory& history) {
    // The end of a line with "run" is not ours to change.
    text.erase(0, text.find_first_not_of(" \t"));
    if (text.empty()) {
        return std::nullopt;
    }
    const std::optional<std::string> meant = recalled(text, history);
    if (!meant) {
        std::cerr << "The history has no line for " << Text::printable(text) << std::endl;
        return std::nullopt;
    }
    if (*meant != text) {
        text = *meant;
        std::cout << "Execute \"" << text << "\"" << std::endl;
    }
    std::list<std::string> words = ModernParser::split(text);
    if (words.size() == 1 && (words.front() == "exit" || words.front() == "quit")) {
        return words.front() == "exit" ? 0 : kQuitStatus;
    }
    if (words.size() == 1 && words.front() == "history") {
        history.listIt();
        return std::nullopt;
    }
    if (words.front() == "cd") {
        words.pop_front();
        if (commands.changeLevel(words)) {
            history.add(text);
        }
    } else if (commands.runLine(text)) {
        history.add(text);
    }
    return std::nullopt;
}
