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

// Bytes of the multi-byte character at that place; 0 when they are no valid UTF-8 or encode a C1
// control, which are the first 32 characters with two bytes.
std::size_t multiByteLength(const std::string& text, std::size_t at) {
    const std::size_t length = Text::utf8Length(text, at);
    const bool isC1 = length == 2 && byteAt(text, at) == 0xC2 && byteAt(text, at + 1) < 0xA0;
    return length < 2 || isC1 ? 0 : length;
}

}  // namespace

std::string escapeForTerminal(const std::string& text) {
    std::string shown;
    shown.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        // Nearly all of it is taken over in long pieces.
        const std::size_t begin = at;
        while (at < text.size() && isHarmlessAscii(text, at)) {
            ++at;
        }
        shown.append(text, begin, at - begin);
        if (at == text.size()) {
            break;
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
