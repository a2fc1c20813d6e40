#include "LineModel.h"

#include <algorithm>
#include <cctype>
#include <utility>

namespace {

// Letters, digits and everything beyond ASCII.
bool isWordByte(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte >= 0x80 || std::isalnum(byte) != 0;
}

bool isBlankByte(char c) {
    return c == ' ' || c == '\n';
}

bool startsWith(const std::string& text, const std::string& beginning) {
    return text.compare(0, beginning.size(), beginning) == 0;
}

}  // namespace

void LineModel::startLine() {
    setLine("", 0);
    lastKill = Kill::kNone;
    lastWasYank = false;
    browsing = false;
    searching = false;
    failed = false;
    query.clear();
}

void LineModel::setLine(std::string text, std::size_t cursor) {
    line = std::move(text);
    at = textcells::boundaryFrom(line, cursor, coding);
}

void LineModel::replaceBeforeCursor(std::size_t begin, const std::string& replacement) {
    begin = std::min(begin, at);
    const std::string added = textcells::cleaned(replacement, coding, false);
    std::string text = line;
    text.replace(begin, at - begin, added);
    setLine(std::move(text), begin + added.size());
}

LineModel::Outcome LineModel::press(const Key& key, const History& history) {
    if (searching) {
        return pressInSearch(key, history);
    }
    const Kill killBefore = std::exchange(lastKill, Kill::kNone);
    const bool yankBefore = std::exchange(lastWasYank, false);
    const bool browsesOn =
        key.kind == Key::Kind::kUp || key.kind == Key::Kind::kDown ||
        (key.kind == Key::Kind::kCharacter && key.control && (key.text == "p" || key.text == "n"));
    browsing = browsing && browsesOn;
    switch (key.kind) {
        case Key::Kind::kCharacter:
            // A kill that follows a kill belongs to it, a yank that follows a yank replaces it.
            lastKill = killBefore;
            lastWasYank = yankBefore;
            return pressCharacter(key, history);
        case Key::Kind::kPaste:
            return insert(textcells::cleaned(key.text, coding));
        case Key::Kind::kLongPaste:
            return Outcome::kLongPaste;
        case Key::Kind::kEnter:
            return key.alt ? Outcome::kBell : Outcome::kLine;
        case Key::Kind::kTab:
            return key.alt ? Outcome::kBell : Outcome::kComplete;
        case Key::Kind::kBackspace:
            if (key.alt) {
                lastKill = killBefore;
                return kill(wordLeft(), at, Kill::kBackward);
            }
            return eraseTo(left());
        case Key::Kind::kDelete:
            return eraseTo(right());
        case Key::Kind::kInsert:
            overwriting = !overwriting;
            return Outcome::kNothing;
        case Key::Kind::kHome:
            return moveTo(0);
        case Key::Kind::kEnd:
            return moveTo(line.size());
        case Key::Kind::kUp:
            return browse(true, true, history);
        case Key::Kind::kDown:
            return browse(false, true, history);
        case Key::Kind::kLeft:
            return moveTo(key.control || key.alt ? wordLeft() : left());
        case Key::Kind::kRight:
            return moveTo(key.control || key.alt ? wordRight() : right());
        case Key::Kind::kEscape:
            return Outcome::kNothing;
    }
    return Outcome::kNothing;
}

LineModel::Outcome LineModel::pressCharacter(const Key& key, const History& history) {
    if (key.control) {
        return pressControl(key.text.empty() ? '\0' : key.text[0], history);
    }
    if (key.alt) {
        return pressAlt(key.text.empty() ? '\0' : key.text[0]);
    }
    lastKill = Kill::kNone;
    lastWasYank = false;
    const std::string added = textcells::cleaned(key.text, coding, false);
    if (overwriting && at < line.size() && line[at] != '\n' && !added.empty()) {
        line.erase(at, right() - at);
    }
    return insert(added);
}

LineModel::Outcome LineModel::pressControl(char letter, const History& history) {
    switch (letter) {
        case 'k':
            return kill(at, line.size(), Kill::kForward);
        case 'u':
            return kill(0, at, Kill::kBackward);
        case 'w':
            return kill(blankLeft(), at, Kill::kBackward);
        default:
            break;
    }
    lastKill = Kill::kNone;
    lastWasYank = false;
    switch (letter) {
        case 'a':
            return moveTo(0);
        case 'b':
            return moveTo(left());
        case 'c':
            startLine();
            return Outcome::kInterrupt;
        case 'd':
            return line.empty() ? Outcome::kEndOfInput : eraseTo(right());
        case 'e':
            return moveTo(line.size());
        case 'f':
            return moveTo(right());
        case 'l':
            return Outcome::kClearScreen;
        case 'n':
            return browse(false, false, history);
        case 'p':
            return browse(true, false, history);
        case 'r':
            searching = true;
            failed = false;
            query.clear();
            ownLine = line;
            ownCursor = at;
            found = history.size();
            return Outcome::kNothing;
        case 't':
            return transpose();
        case 'y':
            return yank();
        case 'z':
            return Outcome::kSuspend;
        default:
            return Outcome::kBell;
    }
}

LineModel::Outcome LineModel::pressAlt(char letter) {
    switch (letter) {
        case 'd':
            return kill(at, wordRight(), Kill::kForward);
        case 'y':
            lastKill = Kill::kNone;
            return yankEarlier();
        default:
            break;
    }
    lastKill = Kill::kNone;
    lastWasYank = false;
    switch (letter) {
        case 'b':
            return moveTo(wordLeft());
        case 'f':
            return moveTo(wordRight());
        default:
            return Outcome::kBell;
    }
}

LineModel::Outcome LineModel::insert(std::string added) {
    if (line.size() + added.size() > kMaxLineBytes) {
        return Outcome::kBell;
    }
    std::string text = std::move(line);
    text.insert(at, added);
    setLine(std::move(text), at + added.size());
    return Outcome::kNothing;
}

LineModel::Outcome LineModel::moveTo(std::size_t place) {
    if (place == at) {
        return Outcome::kBell;
    }
    at = place;
    return Outcome::kNothing;
}

LineModel::Outcome LineModel::eraseTo(std::size_t place) {
    if (place == at) {
        return Outcome::kBell;
    }
    const std::size_t begin = std::min(place, at);
    std::string text = std::move(line);
    text.erase(begin, std::max(place, at) - begin);
    setLine(std::move(text), begin);
    return Outcome::kNothing;
}

LineModel::Outcome LineModel::kill(std::size_t begin, std::size_t end, Kill direction) {
    lastWasYank = false;
    if (begin == end) {
        lastKill = Kill::kNone;
        return Outcome::kBell;
    }
    const std::string gone = line.substr(begin, end - begin);
    if (lastKill != Kill::kNone && !kills.empty()) {
        kills.front().insert(direction == Kill::kForward ? kills.front().size() : 0, gone);
        if (kills.front().size() > kMaxLineBytes) {
            kills.front().resize(kMaxLineBytes);
        }
    } else {
        kills.push_front(gone);
        if (kills.size() > kMaxKills) {
            kills.pop_back();
        }
    }
    lastKill = direction;
    std::string text = std::move(line);
    text.erase(begin, end - begin);
    setLine(std::move(text), begin);
    return Outcome::kNothing;
}

LineModel::Outcome LineModel::yank() {
    if (kills.empty() || insert(kills.front()) == Outcome::kBell) {
        return Outcome::kBell;
    }
    yanked = 0;
    lastWasYank = true;
    return Outcome::kNothing;
}

LineModel::Outcome LineModel::yankEarlier() {
    if (!std::exchange(lastWasYank, false) || kills.size() < 2) {
        return Outcome::kBell;
    }
    const std::string& before = kills[yanked];
    const std::size_t begin = at - std::min(at, before.size());
    if (line.compare(begin, at - begin, before) != 0) {
        return Outcome::kBell;  // what was put in has grown together with what stood there
    }
    const std::size_t next = (yanked + 1) % kills.size();
    if (line.size() - before.size() + kills[next].size() > kMaxLineBytes) {
        return Outcome::kBell;
    }
    std::string text = std::move(line);
    text.replace(begin, before.size(), kills[next]);
    setLine(std::move(text), begin + kills[next].size());
    yanked = next;
    lastWasYank = true;
    return Outcome::kNothing;
}

// The cluster before the cursor changes places with the one at the cursor; at the end of the line
// the last two do.
LineModel::Outcome LineModel::transpose() {
    const std::size_t middle = at == line.size() ? left() : at;
    const std::size_t begin = textcells::previousBoundary(line, middle, coding);
    const std::size_t end = textcells::nextBoundary(line, middle, coding);
    if (begin == middle || middle == end) {
        return Outcome::kBell;
    }
    std::string text = line;
    std::rotate(text.begin() + static_cast<std::ptrdiff_t>(begin),
                text.begin() + static_cast<std::ptrdiff_t>(middle),
                text.begin() + static_cast<std::ptrdiff_t>(end));
    setLine(std::move(text), end);
    return Outcome::kNothing;
}

LineModel::Outcome LineModel::browse(bool older, bool withPrefix, const History& history) {
    if (!browsing) {
        browsing = true;
        entry = history.size();
        ownLine = line;
        ownCursor = at;
        prefix = line.substr(0, at);
    }
    const std::string wanted = withPrefix ? prefix : "";
    std::size_t next = entry;
    while (older ? next > 0 : next < history.size()) {
        next = older ? next - 1 : next + 1;
        if (next == history.size()) {
            entry = next;
            setLine(ownLine, ownCursor);
            return Outcome::kNothing;
        }
        const std::string text = textcells::cleaned(history[next], coding);
        // An entry that looks like what is shown is no step.
        if (startsWith(text, wanted) && text != line) {
            entry = next;
            setLine(text, text.size());
            return Outcome::kNothing;
        }
    }
    return Outcome::kBell;
}

LineModel::Outcome LineModel::pressInSearch(const Key& key, const History& history) {
    const bool plain = key.kind == Key::Kind::kCharacter && !key.control && !key.alt;
    if (plain || key.kind == Key::Kind::kPaste) {
        const std::string added = textcells::cleaned(key.text, coding, false);
        if (query.size() + added.size() > kMaxLineBytes) {
            return Outcome::kBell;
        }
        query += added;
        return search(found == history.size() ? history.size() : found + 1, history);
    }
    if (key.kind == Key::Kind::kBackspace && !key.alt) {
        if (query.empty()) {
            return Outcome::kBell;
        }
        query.erase(textcells::previousBoundary(query, query.size(), coding));
        if (query.empty()) {
            found = history.size();
            failed = false;
            setLine(ownLine, ownCursor);
            return Outcome::kNothing;
        }
        return search(history.size(), history);
    }
    if (key.kind == Key::Kind::kCharacter && key.control && key.text == "r") {
        return query.empty() ? Outcome::kBell : search(found, history);
    }
    const bool aborts = key.kind == Key::Kind::kEscape ||
                        (key.kind == Key::Kind::kCharacter && key.control && key.text == "g");
    searching = false;
    failed = false;
    query.clear();
    if (aborts) {
        setLine(ownLine, ownCursor);
        return Outcome::kNothing;
    }
    if (key.kind == Key::Kind::kEnter) {
        return Outcome::kNothing;  // takes the line; the next Enter runs it
    }
    return press(key, history);
}

// The newest entry before that one that holds the query.
LineModel::Outcome LineModel::search(std::size_t from, const History& history) {
    for (std::size_t next = std::min(from, history.size()); next-- > 0;) {
        const std::string text = textcells::cleaned(history[next], coding);
        const std::string::size_type place = text.find(query);
        if (place != std::string::npos) {
            found = next;
            failed = false;
            setLine(text, place);
            return Outcome::kNothing;
        }
    }
    failed = true;
    return Outcome::kBell;
}

std::size_t LineModel::wordLeft() const {
    std::size_t place = at;
    while (place > 0 && !isWordByte(line[place - 1])) {
        --place;
    }
    while (place > 0 && isWordByte(line[place - 1])) {
        --place;
    }
    return textcells::boundaryFrom(line, place, coding);
}

std::size_t LineModel::wordRight() const {
    std::size_t place = at;
    while (place < line.size() && !isWordByte(line[place])) {
        ++place;
    }
    while (place < line.size() && isWordByte(line[place])) {
        ++place;
    }
    return textcells::boundaryFrom(line, place, coding);
}

std::size_t LineModel::blankLeft() const {
    std::size_t place = at;
    while (place > 0 && isBlankByte(line[place - 1])) {
        --place;
    }
    while (place > 0 && !isBlankByte(line[place - 1])) {
        --place;
    }
    return textcells::boundaryFrom(line, place, coding);
}
