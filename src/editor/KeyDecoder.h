#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "Key.h"
#include "TextCells.h"

// Turns the bytes of a terminal into keys: xterm's, tmux's, rxvt's and the Linux console's. What it
// does not know it swallows whole: no part of a sequence ever becomes a character of a line.
//
// Bytes go in by feed(), keys come out by next(). Time only counts while nothing arrives: call
// idle() when a read would have waited, and again at due(). A terminal's bytes that were merely
// read late are therefore never torn apart. Keeps at most one sequence and one paste beside the
// keys that have not been taken. One thread.
class KeyDecoder {
public:
    using Clock = std::chrono::steady_clock;
    using Now = std::function<Clock::time_point()>;

    // Silence after which what has begun counts as over, in milliseconds.
    static constexpr int kEscapeMs = 50;     // ESC, or ESC and one character more
    static constexpr int kSequenceMs = 500;  // a longer sequence, or half a character
    static constexpr int kPasteMs = 2000;    // a paste without its end mark
    static constexpr std::size_t kMaxPasteBytes = std::size_t{1024} * 1024;

    explicit KeyDecoder(TextCoding textCoding, Now clock = &Clock::now);

    void feed(std::string_view bytes);
    std::optional<Key> next();

    // Nothing has arrived since the last feed(): ends what has waited too long.
    void idle();
    // When idle() would end something; nothing while no sequence is open.
    std::optional<Clock::time_point> due() const;

private:
    enum class State {
        kGround,
        kCharacter,  // in the middle of a character of UTF-8
        kEscape,     // behind ESC
        kBracket,    // behind ESC [
        kFunction,   // behind ESC O
        kLinuxKey,   // behind ESC [ [
        kString,     // behind ESC ] and its like: up to ESC \ or BEL
        kStringEscape,
        kPaste,
    };

    void take(unsigned char byte);
    void ground(unsigned char byte);
    void character(unsigned char byte);
    void escape(unsigned char byte);
    void bracket(unsigned char byte);
    void function(unsigned char byte);
    void paste(unsigned char byte);
    void cutHalfAnEnd();
    void endPaste();
    void endCharacter();
    void abandon(unsigned char byte);
    void bracketKey(char final);
    void letterKey(char final, int modifiers);
    void numberKey(int number, int modifiers);

    void press(Key::Kind kind, int modifiers = 0);
    void pressText(std::string text, bool control, bool alt);
    void rest();
    int waitMs() const;

    TextCoding coding;
    Now now;
    State state = State::kGround;
    bool altHeld = false;  // a second ESC came before the sequence
    std::string pending;   // parameters of the sequence, or bytes of a character
    std::size_t sequenceBytes = 0;
    std::string pasted;
    bool pasteTooLong = false;
    Clock::time_point lastByte;
    std::deque<Key> keys;
};
