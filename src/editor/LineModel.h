#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <vector>

#include "Key.h"
#include "TextCells.h"

// A command line that is being edited: its text, the cursor, what was killed, and where the user is
// in the history. No terminal and no clock: the same keys always give the same line. The keys are
// those of bash's emacs mode; Up and Down look for entries that begin with what stands before the
// cursor.
//
// A newline in the text comes from a paste; control characters never stand in it. The cursor is a
// place in the text, in bytes, and never inside a cluster. A value: copies are independent.
class LineModel {
public:
    using History = std::vector<std::string>;  // oldest first

    enum class Outcome {
        kNothing,      // edited, moved, or nothing to do for the caller
        kBell,         // the key could not do anything
        kLine,         // Enter: the text is the user's line; several lines after a paste
        kComplete,     // Tab
        kEndOfInput,   // Ctrl+D on an empty line
        kInterrupt,    // Ctrl+C: the text was dropped
        kSuspend,      // Ctrl+Z
        kClearScreen,  // Ctrl+L
        kLongPaste,    // a paste that is too long was dropped
    };

    // Beyond it nothing is put in, and the bell rings.
    static constexpr std::size_t kMaxLineBytes = std::size_t{1024} * 1024;
    static constexpr std::size_t kMaxKills = 16;

    explicit LineModel(TextCoding textCoding) : coding(textCoding) {}

    // history must be the same from the first key of a line to its last.
    Outcome press(const Key& key, const History& history);

    const std::string& text() const { return line; }
    std::size_t cursor() const { return at; }
    bool overwrites() const { return overwriting; }

    // The incremental search: what is looked for, and whether no entry holds it.
    bool isSearching() const { return searching; }
    const std::string& searched() const { return query; }
    bool searchFailed() const { return failed; }

    // For completion: puts the text in place of the bytes from begin to the cursor.
    void replaceBeforeCursor(std::size_t begin, const std::string& replacement);
    // An empty line; kills and the way of inserting stay.
    void startLine();

private:
    enum class Kill { kNone, kForward, kBackward };

    Outcome pressCharacter(const Key& key, const History& history);
    Outcome pressControl(char letter, const History& history);
    Outcome pressAlt(char letter);
    Outcome pressInSearch(const Key& key, const History& history);

    Outcome insert(std::string added);
    Outcome moveTo(std::size_t place);
    Outcome kill(std::size_t begin, std::size_t end, Kill direction);
    Outcome eraseTo(std::size_t place);
    Outcome yank();
    Outcome yankEarlier();
    Outcome transpose();
    Outcome browse(bool older, bool withPrefix, const History& history);
    Outcome search(std::size_t from, const History& history);
    Outcome showFound(const std::string& entry);
    void setLine(std::string text, std::size_t cursor);

    std::size_t left() const { return textcells::previousBoundary(line, at, coding); }
    std::size_t right() const { return textcells::nextBoundary(line, at, coding); }
    std::size_t wordLeft() const;
    std::size_t wordRight() const;
    std::size_t blankLeft() const;

    TextCoding coding;
    std::string line;
    std::size_t at = 0;
    bool overwriting = false;

    std::deque<std::string> kills;  // newest first
    Kill lastKill = Kill::kNone;
    bool lastWasYank = false;
    std::size_t yanked = 0;  // which of the kills stands before the cursor

    bool browsing = false;
    std::size_t entry = 0;  // of the history; its size is the user's own line
    std::string ownLine;
    std::size_t ownCursor = 0;
    std::string prefix;

    bool searching = false;
    bool failed = false;
    std::string query;
    std::size_t found = 0;
};
