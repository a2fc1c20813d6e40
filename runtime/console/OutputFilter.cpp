#include "OutputFilter.h"

#include <cstddef>

#include "Text.h"

namespace {

unsigned char byteAt(const std::string& text, std::size_t at) {
    return static_cast<unsigned char>(text[at]);
}

bool isHarmlessAscii(const std::string& text, std::size_t at) {
    const unsigned char byte = byteAt(text, at);
    if (byte == '\r') {
        return at + 1 < text.size() && text[at + 1] == '\n';
    }
    return byte == '\n' || byte == '\t' || (byte >= 0x20 && byte < 0x7F);
}

bool isContinuation(const std::string& text, std::size_t at) {
    return at < text.size() && (byteAt(text, at) & 0xC0) == 0x80;
}

// Bytes of the multi-byte character at that place; 0 when they are no valid UTF-8 or encode a C1
// control. The bounds on the second byte keep out overlong forms, surrogates and what lies beyond
// the last code point.
std::size_t multiByteLength(const std::string& text, std::size_t at) {
    const unsigned char lead = byteAt(text, at);
    std::size_t length = 0;
    unsigned char lowest = 0x80;
    unsigned char highest = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
        lowest = lead == 0xC2 ? 0xA0 : lowest;
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
        if (!isContinuation(text, at + i)) {
            return 0;
        }
    }
    const unsigned char second = byteAt(text, at + 1);
    return second >= lowest && second <= highest ? length : 0;
}

}  // namespace

std::string escapeForTerminal(const std::string& text) {
    std::string shown;
    shown.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        if (isHarmlessAscii(text, at)) {
            shown += text[at++];
            continue;
        }
        const std::size_t length = byteAt(text, at) < 0x80 ? 0 : multiByteLength(text, at);
        if (length == 0) {
            shown += "\\x";
            Text::appendHex(shown, text[at++]);
        } else {
            shown.append(text, at, length);
            at += length;
        }
    }
    return shown;
}
