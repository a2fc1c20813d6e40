#include "Text.h"

namespace {

// Replaces letters from first to last by those of the alphabet that begins with target.
void mapLetters(std::string& text, char first, char last, char target) {
    for (char& c : text) {
        if (c >= first && c <= last) {
            c = static_cast<char>(c - first + target);
        }
    }
}

void appendEscaped(std::string& text, char c) {
    switch (c) {
        case '\n':
            text += "\\n";
            break;
        case '\r':
            text += "\\r";
            break;
        case '\t':
            text += "\\t";
            break;
        case '"':
        case '\\':
            text += '\\';
            text += c;
            break;
        default:
            if (Text::isPlain(c)) {
                text += c;
            } else {
                text += "\\x";
                Text::appendHex(text, c);
            }
    }
}

}  // namespace

bool Text::startsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

void Text::trim(std::string& text) {
    const std::string::size_type first = text.find_first_not_of(kWhiteSpace);
    if (first == std::string::npos) {
        text.clear();
        return;
    }
    text.erase(text.find_last_not_of(kWhiteSpace) + 1);
    text.erase(0, first);
}

std::string Text::trimmed(std::string text) {
    trim(text);
    return text;
}

void Text::toLower(std::string& text) {
    mapLetters(text, 'A', 'Z', 'a');
}

void Text::toUpper(std::string& text) {
    mapLetters(text, 'a', 'z', 'A');
}

std::vector<std::string> Text::split(std::string_view text, char separator) {
    std::vector<std::string> parts(1);
    for (const char c : text) {
        if (c == separator) {
            parts.emplace_back();
        } else {
            parts.back() += c;
        }
    }
    return parts;
}

std::string Text::printableName(std::string_view text, std::size_t maxBytes) {
    constexpr std::string_view kAllowed = "._@+-=,/";
    std::string name;
    for (const char c : text.substr(0, maxBytes)) {
        if (isLetter(c) || isDigit(c) || kAllowed.find(c) != std::string_view::npos) {
            name += c;
        } else {
            name += "\\x";
            appendHex(name, c);
        }
    }
    return text.size() > maxBytes ? name + "..." : name;
}

std::string Text::printable(std::string_view text, std::size_t maxBytes) {
    std::string shown;
    for (const char c : text.substr(0, maxBytes)) {
        appendEscaped(shown, c);
    }
    if (text.size() > maxBytes) {
        shown += "...(" + std::to_string(text.size() - maxBytes) + " more bytes)";
    }
    return shown;
}

void Text::appendHex(std::string& text, char byte) {
    constexpr char kDigits[] = "0123456789abcdef";
    const unsigned int value = static_cast<unsigned char>(byte);
    text += kDigits[value >> 4U];
    text += kDigits[value & 15U];
}

std::size_t Text::utf8Length(std::string_view text, std::size_t at) {
    const auto byteAt = [text](std::size_t place) {
        return place < text.size() ? static_cast<unsigned char>(text[place]) : 0U;
    };
    const unsigned int lead = byteAt(at);
    std::size_t length = 0;
    // The bounds on the second byte.
    unsigned int lowest = 0x80;
    unsigned int highest = 0xBF;
    if (lead < 0x80) {
        return at < text.size() ? 1 : 0;
    }
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        lowest = lead == 0xE0 ? 0xA0 : lowest;
        highest = lead == 0xED ? 0x9F : highest;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        lowest = lead == 0xF0 ? 0x90 : lowest;
        highest = lead == 0xF4 ? 0x8F : highest;
    } else {
        return 0;
    }
    for (std::size_t i = 1; i < length; ++i) {
        if ((byteAt(at + i) & 0xC0) != 0x80) {
            return 0;
        }
    }
    return byteAt(at + 1) >= lowest && byteAt(at + 1) <= highest ? length : 0;
}

bool Text::isUtf8(std::string_view text) {
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = utf8Length(text, at);
        if (length == 0) {
            return false;
        }
        at += length;
    }
    return true;
}
