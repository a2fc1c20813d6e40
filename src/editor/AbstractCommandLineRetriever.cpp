#include "AbstractCommandLineRetriever.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <iostream>
#include <sys/ioctl.h>
#include <unistd.h>

#include "CUtil.h"
#include "Terminal.h"

unsigned short rowNum = 25;
unsigned short colNum = 80;

namespace {

constexpr unsigned short kDefaultRows = 25;
constexpr unsigned short kDefaultColumns = 80;

constexpr int kTab = 9;
constexpr int kLineFeed = 10;
constexpr int kEscape = 27;
constexpr int kBackspace = 127;

// The handler may run in another thread than the editor's.
unsigned int columns() {
    const unsigned short now = __atomic_load_n(&colNum, __ATOMIC_RELAXED);
    return now == 0 ? kDefaultColumns : now;
}
unsigned int rows() {
    return __atomic_load_n(&rowNum, __ATOMIC_RELAXED);
}

void put(const char* bytes, std::streamsize count) {
    std::cout.write(bytes, count);
}

}  // namespace

AbstractCommandLineRetriever::~AbstractCommandLineRetriever() = default;

void AbstractCommandLineRetriever::resetHistoryIndex() {}

// These three are for programs without a history of their own; docs/compatibility.md.
void AbstractCommandLineRetriever::upPressed() {
    put("Up\n", 3);
}

void AbstractCommandLineRetriever::downPressed() {
    put("Down\n", 5);
}

void AbstractCommandLineRetriever::tabPressed() {
    put("Tab\n", 4);
}

void AbstractCommandLineRetriever::putUp() {
    put("\x1b[A", 3);
}

void AbstractCommandLineRetriever::putDown() {
    put("\x1b[B", 3);
}

void AbstractCommandLineRetriever::putRight() {
    put("\x1b[C", 3);
}

void AbstractCommandLineRetriever::putLeft() {
    put("\x1b[D", 3);
}

void AbstractCommandLineRetriever::putEnter() {
    put("\n", 1);
}

void AbstractCommandLineRetriever::putSpace() {
    put(" ", 1);
}

void AbstractCommandLineRetriever::putBeep() {
    put("\a", 1);
}

void AbstractCommandLineRetriever::keyIn(std::string s) {
    line.seekp(0, std::ios::end);
    line << s;
}

void AbstractCommandLineRetriever::moveRightInConsole(unsigned int* pos) {
    if (pos == nullptr) {
        return;
    }
    const unsigned int width = columns();
    const unsigned int moved = *pos + 1;
    if (moved % width == 0) {
        for (unsigned int i = 0; i < width; ++i) {
            putLeft();
        }
        putDown();
    }
    *pos = moved;
}

void AbstractCommandLineRetriever::moveIndexLeftInConsole(unsigned int* pos) {
    if (pos == nullptr) {
        return;
    }
    const unsigned int width = columns();
    if (*pos % width == 0) {
        for (unsigned int i = 0; i < width; ++i) {
            putRight();
        }
        putUp();
    } else {
        putLeft();
    }
    --*pos;
}

void AbstractCommandLineRetriever::moveLeft() {
    if (cursorPos > 0) {
        moveIndexLeftInConsole(&cursorPos);
    }
}

void AbstractCommandLineRetriever::erase(int n) {
    for (int i = 0; i < n; ++i) {
        moveLeft();
        putSpace();
        putLeft();
    }
}

void AbstractCommandLineRetriever::handleWindowSizeChange(int /*signal*/) {
    const int savedErrno = errno;
    winsize size = {};
    if (ioctl(STDIN_FILENO, TIOCGWINSZ, &size) != 0) {
        size = {};
    }
    const unsigned short newRows = size.ws_row == 0 ? kDefaultRows : size.ws_row;
    const unsigned short newColumns = size.ws_col == 0 ? kDefaultColumns : size.ws_col;
    __atomic_store_n(&rowNum, newRows, __ATOMIC_RELAXED);
    __atomic_store_n(&colNum, newColumns, __ATOMIC_RELAXED);
    errno = savedErrno;
}

std::string AbstractCommandLineRetriever::getCommandLine() {
    handleWindowSizeChange(SIGWINCH);
    // Cannot fail: the signal exists and can be caught.
    static_cast<void>(std::signal(SIGWINCH, &AbstractCommandLineRetriever::handleWindowSizeChange));
    cursorPos = 0;
    cursorIndex = line.tellp();
    {
        const Terminal::Hold keyMode(Terminal::standard(), [this] { drawAgain(); });
        endOfInput = !readLine();
    }
    std::string text = line.str();
    if (endOfInput && Terminal::standard().isHungUp()) {
        text.clear();
    }
    setLine("", 0);
    resetHistoryIndex();
    std::cout.flush();
    return text;
}

// False at the end of input.
bool AbstractCommandLineRetriever::readLine() {
    for (;;) {
        const int key = CUtil::mygetch();
        if (key == kLineFeed) {
            return true;
        }
        if (!keyPressed(key)) {
            return false;
        }
        cursorIndex = line.tellp();
    }
}

// False when the end of input came instead of a key or inside one.
bool AbstractCommandLineRetriever::keyPressed(int key) {
    switch (key) {
        case -1:
            return false;
        case kTab:
            tabPressed();
            // Even when it completed something; docs/compatibility.md.
            putBeep();
            return true;
        case kBackspace:
            backspacePressed();
            return true;
        case kEscape:
            return escapePressed();
        default:
            textPressed(static_cast<char>(key));
            return true;
    }
}

bool AbstractCommandLineRetriever::escapePressed() {
    const int first = CUtil::mygetch();
    const int second = first < 0 ? -1 : CUtil::mygetch();
    if (second < 0) {
        return false;
    }
    switch (first) {
        case '[':
            return bracketKeyPressed(second);
        case 'O':
            letterOPressed(second);
            return true;
        default:
            // Shows what a terminal sends that is not known; docs/compatibility.md.
            std::cout << "c1=" << first << '\n';
            return true;
    }
}

bool AbstractCommandLineRetriever::bracketKeyPressed(int key) {
    switch (key) {
        case 'A':
            upPressed();
            return true;
        case 'B':
            downPressed();
            return true;
        case 'C':
            if (cursorIndex < lineLength()) {
                moveOver(1);
            }
            return true;
        case 'D':
            if (cursorIndex > 0) {
                moveBackOver(1);
            }
            return true;
        case '2':
        case '3':
            // The "~" that ends these two.
            if (CUtil::mygetch() < 0) {
                return false;
            }
            if (key == '2') {
                insertMode = !insertMode;
            } else {
                deletePressed();
            }
            return true;
        default:
            return true;
    }
}

void AbstractCommandLineRetriever::letterOPressed(int key) {
    if (key == 'H') {
        moveBackOver(cursorIndex);
    } else if (key == 'F') {
        moveOver(lineLength() - cursorIndex);
    }
}

void AbstractCommandLineRetriever::backspacePressed() {
    if (cursorIndex == 0) {
        putBeep();
        return;
    }
    const bool wrapped = cursorPos % columns() == 0;
    const std::string rest = restOfLine();
    putLeft();
    putSpace();
    moveLeft();
    std::string text = line.str();
    text.erase(static_cast<std::string::size_type>(--cursorIndex), 1);
    setLine(text, cursorIndex);
    // At the end of the line the blank above has cleared the cell, unless that was on the screen
    // line above.
    if (wrapped || !rest.empty()) {
        drawAndReturn(rest + ' ', cursorPos, cursorPos);
    }
}

void AbstractCommandLineRetriever::deletePressed() {
    const std::string rest = restOfLine();
    if (rest.empty()) {
        putBeep();
        return;
    }
    std::string text = line.str();
    text.erase(static_cast<std::string::size_type>(cursorIndex), 1);
    setLine(text, cursorIndex);
    drawAndReturn(rest.substr(1) + ' ', cursorPos, cursorPos);
}

void AbstractCommandLineRetriever::textPressed(char c) {
    if (!insertMode || cursorIndex >= lineLength()) {
        std::cout.put(c);
        line.put(c);
    } else {
        const std::string rest = restOfLine();
        std::string text = line.str();
        text.insert(static_cast<std::string::size_type>(cursorIndex), 1, c);
        setLine(text, cursorIndex + 1);
        drawAndReturn(c + rest, cursorPos, cursorPos + 1);
    }
    moveRightInConsole(&cursorPos);
    scrollWhenWrappedOnLastRow();
}

void AbstractCommandLineRetriever::scrollWhenWrappedOnLastRow() {
    if (cursorPos == 0 || cursorPos % columns() != 0) {
        return;
    }
    unsigned int row = 0;
    unsigned int column = 0;
    CUtil::getCursorPosition(row, column);
    if (row == rows()) {
        putEnter();
    }
}

// Does not copy the text, since it is called for every key.
std::int64_t AbstractCommandLineRetriever::lineLength() {
    const std::ostringstream::pos_type cursor = line.tellp();
    line.seekp(0, std::ios::end);
    const std::int64_t length = line.tellp();
    line.seekp(cursor);
    return length;
}

std::string AbstractCommandLineRetriever::restOfLine() const {
    const std::string text = line.str();
    return text.substr(std::min(static_cast<std::string::size_type>(cursorIndex), text.size()));
}

void AbstractCommandLineRetriever::setLine(const std::string& text, std::int64_t index) {
    line.str(text);
    line.clear();
    line.seekp(index);
}

void AbstractCommandLineRetriever::moveOver(std::int64_t count) {
    for (std::int64_t i = 0; i < count; ++i) {
        ++cursorIndex;
        putRight();
        moveRightInConsole(&cursorPos);
    }
    // Text that was added before the line was begun is in the line but not on the screen.
    cursorIndex = std::min(cursorIndex, lineLength());
    line.seekp(cursorIndex);
}

void AbstractCommandLineRetriever::moveBackOver(std::int64_t count) {
    for (std::int64_t i = 0; i < count; ++i) {
        --cursorIndex;
        moveLeft();
    }
    cursorIndex = std::max<std::int64_t>(cursorIndex, 0);
    line.seekp(cursorIndex);
}

// Writes the cells from column "from" on, which the cursor is at, and brings the cursor back to
// column "to". A "to" behind "from" that begins a screen line is left as the terminal leaves a
// cursor that has just filled a line: moveRightInConsole goes on from there.
//
// Line feeds lead from one screen line to the next, since unlike "down" they scroll where the text
// grows beyond the last row.
void AbstractCommandLineRetriever::drawAndReturn(const std::string& cells, unsigned int from,
                                                 unsigned int to) {
    const unsigned int width = columns();
    unsigned int end = from;
    for (std::string::size_type done = 0; done < cells.size();) {
        if (done > 0) {
            putEnter();
        }
        const std::string::size_type fitting =
            std::min<std::string::size_type>(width - end % width, cells.size() - done);
        put(cells.data() + done, static_cast<std::streamsize>(fitting));
        done += fitting;
        end += static_cast<unsigned int>(fitting);
    }
    const bool filled = end % width == 0;
    const bool leftFilled = to > from && to % width == 0;
    const unsigned int endRow = filled ? end / width - 1 : end / width;
    const unsigned int endColumn = filled ? width - 1 : end % width;
    const unsigned int row = leftFilled ? to / width - 1 : to / width;
    const unsigned int column = leftFilled ? endColumn : to % width;
    for (unsigned int i = row; i < endRow; ++i) {
        putUp();
    }
    for (unsigned int i = column; i < endColumn; ++i) {
        putLeft();
    }
    for (unsigned int i = endColumn; i < column; ++i) {
        putRight();
    }
    if (filled && !leftFilled && row == endRow && column == endColumn) {
        // After the last column a terminal keeps its cursor there, but writes the next character on
        // the next line. A movement ends that state.
        putLeft();
        putRight();
    }
}

void AbstractCommandLineRetriever::drawAgain() {
    put("\r", 1);
    put(shownPrompt.data(), static_cast<std::streamsize>(shownPrompt.size()));
    const std::string text = line.str();
    if (text.empty()) {
        return;
    }
    drawAndReturn(text, 0, cursorPos);
    if (cursorPos != 0 && cursorPos % columns() == 0) {
        unsigned int before = cursorPos - 1;
        moveRightInConsole(&before);
    }
}
