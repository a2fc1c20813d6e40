#pragma once

#include <string>

// One key that a user pressed, whatever bytes the terminal sent for it.
struct Key {
    enum class Kind {
        kCharacter,  // text: the character; with control or alt held: its letter, such as "a"
        kPaste,      // text: all of it, as the terminal sent it
        kLongPaste,  // a paste beyond KeyDecoder::kMaxPasteBytes, of which nothing was kept
        kEnter,
        kTab,
        kBackspace,
        kDelete,
        kInsert,
        kHome,
        kEnd,
        kUp,
        kDown,
        kLeft,
        kRight,
        kEscape,  // alone
    };

    Kind kind = Kind::kCharacter;
    std::string text;
    bool control = false;
    bool alt = false;

    bool operator==(const Key& other) const {
        return kind == other.kind && text == other.text && control == other.control &&
               alt == other.alt;
    }
};
