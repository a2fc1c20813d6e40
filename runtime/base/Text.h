#pragma once

#include <string>
#include <string_view>
#include <vector>

// Small functions for text. They do not depend on the locale: letters and digits are those of
// ASCII; white space is blank, tab, newline, carriage return, vertical tab and form feed. Any
// thread may call.
class Text {
public:
    Text() = delete;

    static constexpr char kWhiteSpace[] = " \t\n\r\v\f";

    static bool startsWith(std::string_view text, std::string_view start);

    // Removes the white space at both ends: in place, or into a new text.
    static void trim(std::string& text);
    static std::string trimmed(std::string text);

    static void toLower(std::string& text);
    static void toUpper(std::string& text);

    // Splits at each separator and keeps empty parts; an empty text is one empty part.
    static std::vector<std::string> split(std::string_view text, char separator);

    // Makes text safe for one line of a log or an answer, also between double quotes: \n, \r and \t
    // for newline, carriage return and tab, a backslash before quote and backslash, \xNN for every
    // other byte that is not printable ASCII. Of a text longer than maxBytes the rest is replaced
    // by its length.
    static std::string printable(std::string_view text, std::size_t maxBytes = 1024);

    // The length of the character at that place of UTF-8 text, 1 to 4 bytes; 0 where the bytes
    // are none: overlong forms, surrogates, what lies beyond the last code point, a cut character.
    static std::size_t utf8Length(std::string_view text, std::size_t at);
    static bool isUtf8(std::string_view text);

    // A name from outside as one word of a log line: letters, digits and "._@+-=,/" stay, every
    // other byte is \xNN, blanks and brackets too. So it cannot be taken for other parts of a line.
    static std::string printableName(std::string_view text, std::size_t maxBytes = 1024);

    // Appends the byte as two hexadecimal digits in lower case.
    static void appendHex(std::string& text, char byte);

    // True for a printable character of ASCII, blank included.
    static bool isPlain(char c) { return c >= 0x20 && c < 0x7F; }
    static bool isDigit(char c) { return c >= '0' && c <= '9'; }
    static bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
    static bool isHexDigit(char c) {
        return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
    }
};
