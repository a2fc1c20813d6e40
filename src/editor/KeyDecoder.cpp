#include "KeyDecoder.h"

#include <algorithm>
#include <utility>

namespace {

constexpr unsigned char kEscapeByte = 0x1b;
constexpr char kPasteEnd[] = "\x1b[201~";
// Longer parameters belong to no key; they are only counted.
constexpr std::size_t kMaxParameters = 32;

constexpr int kShift = 1;
constexpr int kAlt = 2;
constexpr int kControl = 4;

// The digits at the beginning; a number that no key has where there are none or too many.
int numberAt(const std::string& text, std::size_t at) {
    constexpr int kNone = -1;
    int value = kNone;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
        value = std::max(value, 0) * 10 + (text[at] - '0');
        if (value > 10000) {
            return kNone;
        }
    }
    return value;
}

// xterm's second parameter: 1 and the sum of shift 1, alt 2, control 4, meta 8.
int modifiersOf(const std::string& parameters) {
    const std::string::size_type semicolon = parameters.find(';');
    if (semicolon == std::string::npos) {
        return 0;
    }
    const int value = numberAt(parameters, semicolon + 1) - 1;
    return value <= 0 || value > 15 ? 0 : (value & 7) | ((value & 8) != 0 ? kAlt : 0);
}

}  // namespace

KeyDecoder::KeyDecoder(TextCoding textCoding, Now clock)
    : coding(textCoding), now(std::move(clock)) {}

void KeyDecoder::feed(std::string_view bytes) {
    for (const char byte : bytes) {
        take(static_cast<unsigned char>(byte));
    }
    lastByte = now();
}

std::optional<Key> KeyDecoder::next() {
    if (keys.empty()) {
        return std::nullopt;
    }
    Key key = std::move(keys.front());
    keys.pop_front();
    return key;
}

int KeyDecoder::waitMs() const {
    switch (state) {
        case State::kPaste:
            return kPasteMs;
        case State::kEscape:
            return kEscapeMs;
        case State::kBracket:
        case State::kFunction:
        case State::kString:
            // Nothing but the first character: it may have been typed with Alt.
            return sequenceBytes == 0 ? kEscapeMs : kSequenceMs;
        default:
            return kSequenceMs;
    }
}

std::optional<KeyDecoder::Clock::time_point> KeyDecoder::due() const {
    if (state == State::kGround) {
        return std::nullopt;
    }
    return lastByte + std::chrono::milliseconds(waitMs());
}

void KeyDecoder::idle() {
    const std::optional<Clock::time_point> end = due();
    if (!end || now() < *end) {
        return;
    }
    switch (state) {
        case State::kPaste:
            cutHalfAnEnd();
            endPaste();
            break;
        case State::kCharacter:
            endCharacter();
            break;
        case State::kEscape:
            press(Key::Kind::kEscape);
            break;
        default:
            break;
    }
    rest();
}

void KeyDecoder::rest() {
    state = State::kGround;
    altHeld = false;
    pending.clear();
    sequenceBytes = 0;
}

void KeyDecoder::take(unsigned char byte) {
    switch (state) {
        case State::kGround:
            return ground(byte);
        case State::kCharacter:
            return character(byte);
        case State::kEscape:
            return escape(byte);
        case State::kBracket:
            return bracket(byte);
        case State::kFunction:
            return function(byte);
        case State::kLinuxKey:
            return byte < 0x20 || byte > 0x7e ? abandon(byte) : rest();
        case State::kString:
            ++sequenceBytes;
            if (byte == kEscapeByte) {
                state = State::kStringEscape;
            } else if (byte == '\a') {
                rest();
            }
            return;
        case State::kStringEscape:
            if (byte == '\\') {
                return rest();
            }
            // The string was cut off by another sequence.
            rest();
            state = State::kEscape;
            return escape(byte);
        case State::kPaste:
            return paste(byte);
    }
}

// A byte that no sequence holds ends the open one and counts for itself.
void KeyDecoder::abandon(unsigned char byte) {
    rest();
    ground(byte);
}

void KeyDecoder::ground(unsigned char byte) {
    switch (byte) {
        case kEscapeByte:
            state = State::kEscape;
            return;
        case '\r':
        case '\n':
            return press(Key::Kind::kEnter);
        case '\t':
            return press(Key::Kind::kTab);
        case 0x08:
        case 0x7f:
            return press(Key::Kind::kBackspace);
        default:
            break;
    }
    if (byte < 0x20) {
        const char letter = static_cast<char>(byte | 0x40);
        const bool isLetter = letter >= 'A' && letter <= 'Z';
        return pressText(std::string(1, isLetter ? static_cast<char>(letter | 0x20) : letter), true,
                         false);
    }
    if (byte < 0x80 || coding == TextCoding::kBytes) {
        return pressText(std::string(1, static_cast<char>(byte)), false, false);
    }
    pending.assign(1, static_cast<char>(byte));
    state = State::kCharacter;
    if (byte < 0xc2 || byte > 0xf4) {
        endCharacter();
    }
}

void KeyDecoder::character(unsigned char byte) {
    if ((byte & 0xc0U) != 0x80U) {
        endCharacter();
        return take(byte);
    }
    pending += static_cast<char>(byte);
    const auto lead = static_cast<unsigned char>(pending[0]);
    if (pending.size() == (lead >= 0xf0 ? 4U : lead >= 0xe0 ? 3U : 2U)) {
        endCharacter();
    }
}

void KeyDecoder::endCharacter() {
    std::string text = textcells::cleaned(pending, coding);
    rest();
    if (!text.empty()) {
        pressText(std::move(text), false, false);
    }
}

void KeyDecoder::escape(unsigned char byte) {
    switch (byte) {
        case kEscapeByte:
            if (altHeld) {
                press(Key::Kind::kEscape);
            }
            altHeld = true;
            return;
        case '[':
            state = State::kBracket;
            return;
        case 'O':
            state = State::kFunction;
            return;
        case ']':
        case 'P':
        case 'X':
        case '^':
        case '_':
            state = State::kString;
            return;
        case 0x08:
        case 0x7f:
            press(Key::Kind::kBackspace, kAlt);
            return rest();
        case '\r':
        case '\n':
            press(Key::Kind::kEnter, kAlt);
            return rest();
        case '\t':
            press(Key::Kind::kTab, kAlt);
            return rest();
        default:
            break;
    }
    if (byte < 0x20 || byte >= 0x80) {
        press(Key::Kind::kEscape);
        return abandon(byte);
    }
    pressText(std::string(1, static_cast<char>(byte)), false, true);
    rest();
}

void KeyDecoder::bracket(unsigned char byte) {
    if (byte < 0x20 || byte > 0x7e) {
        return abandon(byte);
    }
    const bool first = sequenceBytes++ == 0;
    if (first && byte == '[') {
        state = State::kLinuxKey;
        return;
    }
    // rxvt ends a key with shift held by "$", which elsewhere stands before the last character.
    const bool endsWithDollar =
        byte == '$' && pending.find_first_not_of("0123456789") == std::string::npos;
    if (byte >= 0x40 || endsWithDollar) {
        const std::string parameters = pending;
        const bool known = sequenceBytes <= kMaxParameters;
        const bool alt = altHeld;
        rest();
        altHeld = alt;
        pending = parameters;
        if (known) {
            bracketKey(static_cast<char>(byte));
        }
        if (state == State::kGround) {
            rest();
        }
        return;
    }
    if (pending.size() < kMaxParameters) {
        pending += static_cast<char>(byte);
    }
}

void KeyDecoder::bracketKey(char final) {
    if (pending.find_first_not_of("0123456789;") != std::string::npos) {
        return;  // an answer of the terminal, or a key that nobody knows
    }
    const int number = numberAt(pending, 0);
    switch (final) {
        case '~':
            if (number == 200) {
                rest();
                state = State::kPaste;
                pasted.clear();
                pasteTooLong = false;
                return;
            }
            return numberKey(number, modifiersOf(pending));
        case '^':  // rxvt: with control
            return numberKey(number, kControl);
        case '$':
            return numberKey(number, kShift);
        case '@':
            return numberKey(number, kControl | kShift);
        case 'a':
        case 'b':
        case 'c':
        case 'd':  // rxvt: with shift
            return pending.empty() ? letterKey(static_cast<char>(final - 'a' + 'A'), kShift)
                                   : void();
        default:
            return letterKey(final, modifiersOf(pending));
    }
}

void KeyDecoder::function(unsigned char byte) {
    if (byte < 0x20 || byte > 0x7e) {
        return abandon(byte);
    }
    ++sequenceBytes;
    if ((byte >= '0' && byte <= '9') || byte == ';') {
        if (pending.size() < kMaxParameters) {
            pending += static_cast<char>(byte);
        }
        return;
    }
    // Some terminals send the modifiers as the only parameter.
    const int modifiers = pending.find(';') == std::string::npos
                              ? modifiersOf(pending.empty() ? pending : "1;" + pending)
                              : modifiersOf(pending);
    const char final = static_cast<char>(byte);
    if (final == 'M') {
        press(Key::Kind::kEnter, modifiers);
    } else if (final >= 'a' && final <= 'd') {  // rxvt: with control
        letterKey(static_cast<char>(final - 'a' + 'A'), kControl);
    } else {
        letterKey(final, modifiers);
    }
    rest();
}

void KeyDecoder::letterKey(char final, int modifiers) {
    switch (final) {
        case 'A':
            return press(Key::Kind::kUp, modifiers);
        case 'B':
            return press(Key::Kind::kDown, modifiers);
        case 'C':
            return press(Key::Kind::kRight, modifiers);
        case 'D':
            return press(Key::Kind::kLeft, modifiers);
        case 'H':
            return press(Key::Kind::kHome, modifiers);
        case 'F':
            return press(Key::Kind::kEnd, modifiers);
        default:
            return;
    }
}

void KeyDecoder::numberKey(int number, int modifiers) {
    switch (number) {
        case 1:
        case 7:
            return press(Key::Kind::kHome, modifiers);
        case 4:
        case 8:
            return press(Key::Kind::kEnd, modifiers);
        case 2:
            return press(Key::Kind::kInsert, modifiers);
        case 3:
            return press(Key::Kind::kDelete, modifiers);
        default:
            return;
    }
}

void KeyDecoder::paste(unsigned char byte) {
    constexpr std::size_t kEndBytes = sizeof kPasteEnd - 1;
    pasted += static_cast<char>(byte);
    if (pasted.size() >= kEndBytes &&
        pasted.compare(pasted.size() - kEndBytes, kEndBytes, kPasteEnd) == 0) {
        pasted.resize(pasted.size() - kEndBytes);
        endPaste();
        return rest();
    }
    if (pasted.size() > kMaxPasteBytes + kEndBytes) {
        // Only the end mark is still looked for.
        pasteTooLong = true;
        pasted.erase(0, pasted.size() - kEndBytes);
    }
}

// The beginning of an end mark whose rest never came is no text.
void KeyDecoder::cutHalfAnEnd() {
    const std::string mark = kPasteEnd;
    for (std::size_t length = mark.size() - 1; length > 0; --length) {
        if (pasted.size() >= length &&
            pasted.compare(pasted.size() - length, length, mark, 0, length) == 0) {
            pasted.resize(pasted.size() - length);
            return;
        }
    }
}

void KeyDecoder::endPaste() {
    Key key;
    key.kind =
        pasteTooLong || pasted.size() > kMaxPasteBytes ? Key::Kind::kLongPaste : Key::Kind::kPaste;
    if (key.kind == Key::Kind::kPaste) {
        key.text = std::move(pasted);
    }
    pasted = std::string();
    keys.push_back(std::move(key));
}

void KeyDecoder::press(Key::Kind kind, int modifiers) {
    Key key;
    key.kind = kind;
    key.control = (modifiers & kControl) != 0;
    key.alt = (modifiers & kAlt) != 0 || (altHeld && kind != Key::Kind::kEscape);
    keys.push_back(std::move(key));
}

void KeyDecoder::pressText(std::string text, bool control, bool alt) {
    Key key;
    key.text = std::move(text);
    key.control = control;
    key.alt = alt;
    keys.push_back(std::move(key));
}
