#include "AutoHistoryCommandLineRetriever.h"

#include <algorithm>
#include <iostream>

#include "CCmdHistory.h"
#include "CShellExecutionContext.h"
#include "CShellExecutionContextAutoCompleteAdapter.h"
#include "Text.h"

namespace {

const std::string kLevelCommand = "cd";
const std::string kLevelPrefix = "cd ";

// A line that begins with "cd" but not with "cd " names a level only when the candidates are not
// commands.
bool completesLevel(const std::string& text, const std::list<std::string>& candidates) {
    return Text::startsWith(text, kLevelPrefix) ||
           (Text::startsWith(text, kLevelCommand) && !candidates.empty() &&
            !Text::startsWith(candidates.front(), kLevelCommand));
}

// What all candidates have in common from that position on.
std::string commonContinuation(const std::list<std::string>& candidates,
                               std::string::size_type position) {
    const std::string& first = candidates.front();
    std::string::size_type end = position;
    while (end < first.size() &&
           std::all_of(candidates.begin(), candidates.end(), [&](const std::string& candidate) {
               return end < candidate.size() && candidate[end] == first[end];
           })) {
        ++end;
    }
    return position < end ? first.substr(position, end - position) : std::string();
}

}  // namespace

AutoHistoryCommandLineRetriever::AutoHistoryCommandLineRetriever(
    CShellExecutionContext* newContext, CCmdHistory* newHistory,
    CShellExecutionContextAutoCompleteAdapter* newAdapter)
    : executionContext(newContext), history(newHistory), autoCompleteAdapter(newAdapter) {}

AutoHistoryCommandLineRetriever::~AutoHistoryCommandLineRetriever() = default;

void AutoHistoryCommandLineRetriever::resetHistoryIndex() {
    historyIndex = 0;
}

void AutoHistoryCommandLineRetriever::upPressed() {
    const unsigned int fresh = history->size() + 1;
    if (historyIndex == 0 || historyIndex > fresh) {
        historyIndex = fresh;
    }
    if (historyIndex == 1) {
        putBeep();
        return;
    }
    --historyIndex;
    eraseLine();
    adjustCursorIndexAndPosition(history->getCmd(historyIndex));
}

void AutoHistoryCommandLineRetriever::downPressed() {
    const unsigned int fresh = history->size() + 1;
    if (historyIndex >= fresh) {
        historyIndex = fresh + 1;
        putBeep();
        return;
    }
    historyIndex = historyIndex == 0 ? fresh : historyIndex + 1;
    eraseLine();
    // The fresh line has no entry, so this gives the empty line.
    adjustCursorIndexAndPosition(history->getCmd(historyIndex));
}

void AutoHistoryCommandLineRetriever::tabPressed() {
    Completion completion = beginCompletion();
    if (completion.candidates.empty()) {
        putBeep();
    } else if (completion.candidates.size() == 1) {
        completeOne(completion);
    } else {
        completeSeveral(completion);
    }
    moveBackOver(static_cast<std::int64_t>(completion.tail.size()));
}

void AutoHistoryCommandLineRetriever::printCommandPrompt() {
    showPrompt("");
}

void AutoHistoryCommandLineRetriever::printCommandPrompt(unsigned int n) {
    showPrompt("(" + std::to_string(n) + ")");
}

void AutoHistoryCommandLineRetriever::adjustCursorIndexAndPosition(std::string text) {
    std::cout << text;
    cursorIndex = static_cast<std::int64_t>(text.size());
    cursorPos = static_cast<unsigned int>(text.size());
    setLine(text, cursorIndex);
}

void AutoHistoryCommandLineRetriever::showPrompt(const std::string& behindLevel) {
    shownPrompt = "[" + executionContext->getHostName() + executionContext->cwlToString() +
                  behindLevel + "]$ ";
    std::cout << shownPrompt;
}

void AutoHistoryCommandLineRetriever::eraseLine() {
    const auto length = static_cast<std::int64_t>(line.str().size());
    moveOver(length - cursorIndex);
    erase(static_cast<int>(length));
}

// Splits the line, asks for candidates, and moves the terminal cursor to the end of the line.
AutoHistoryCommandLineRetriever::Completion AutoHistoryCommandLineRetriever::beginCompletion() {
    Completion completion;
    completion.text = line.str();
    completion.head = completion.text.substr(0, cursorPos);
    completion.tail = completion.text.substr(completion.head.size());
    moveOver(static_cast<std::int64_t>(completion.tail.size()));
    completion.candidates = autoCompleteAdapter->getPossibleCommandList(completion.head);
    completion.levelMode = completesLevel(completion.text, completion.candidates);
    if (completion.text == kLevelCommand &&
        (completion.levelMode || completion.candidates.empty())) {
        putSpace();
        moveRightInConsole(&cursorPos);
        cursorIndex = static_cast<std::int64_t>(kLevelPrefix.size());
        setLine(kLevelPrefix, cursorIndex);
        completion.text = kLevelPrefix;
        completion.head = kLevelPrefix;
        completion.tail.clear();
        completion.candidates = autoCompleteAdapter->getPossibleCommandList(kLevelPrefix);
        completion.levelMode = true;
    }
    return completion;
}

void AutoHistoryCommandLineRetriever::completeOne(Completion& completion) {
    erase(static_cast<int>(completion.text.size()));
    if (completion.levelMode) {
        completion.tail.clear();
        adjustCursorIndexAndPosition(kLevelPrefix + completion.candidates.front());
    } else {
        adjustCursorIndexAndPosition(completion.candidates.front() + completion.tail);
    }
}

void AutoHistoryCommandLineRetriever::completeSeveral(const Completion& completion) {
    std::string::size_type position = completion.head.size();
    if (completion.levelMode) {
        position = std::max(completion.text.size(), kLevelPrefix.size()) - kLevelPrefix.size();
    }
    const std::string text =
        completion.head + commonContinuation(completion.candidates, position) + completion.tail;
    erase(static_cast<int>(completion.text.size()));
    adjustCursorIndexAndPosition(text);
    putEnter();
    const char* separator = "";
    for (const std::string& candidate : completion.candidates) {
        std::cout << separator << candidate;
        separator = "    ";
    }
    putEnter();
    printCommandPrompt();
    std::cout << text;
}
