// Text of a node on its way to a terminal. Whatever the bytes are: what is shown holds nothing that
// a terminal would obey, filtering it again changes nothing, and nothing harmless is lost.

#include <algorithm>
#include <cstdint>
#include <string>

#include "OutputFilter.h"
#include "Require.h"

namespace {

// An own reading of what is harmless, so that a mistake of the filter is not repeated here: every
// byte is ASCII text, a line's end or a tab, or part of a code point from U+00A0 on.
bool isHarmless(const std::string& text) {
    for (std::size_t at = 0; at < text.size();) {
        const auto lead = static_cast<unsigned char>(text[at]);
        if (lead < 0x80) {
            const bool returns = lead == '\r' && at + 1 < text.size() && text[at + 1] == '\n';
            if ((lead < 0x20 && lead != '\n' && lead != '\t' && !returns) || lead == 0x7f) {
                return false;
            }
            ++at;
            continue;
        }
        const std::size_t length = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
        if (lead < 0xc0 || lead > 0xf7 || at + length > text.size()) {
            return false;
        }
        std::uint32_t point = lead & (0xffU >> (length + 1));
        for (std::size_t i = 1; i < length; ++i) {
            const auto next = static_cast<unsigned char>(text[at + i]);
            if ((next & 0xc0U) != 0x80U) {
                return false;
            }
            point = (point << 6U) | (next & 0x3fU);
        }
        const std::uint32_t lowest = length == 2 ? 0xa0 : length == 3 ? 0x800 : 0x10000;
        if (point < lowest || point > 0x10ffff || (point >= 0xd800 && point <= 0xdfff)) {
            return false;
        }
        at += length;
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const std::string shown = escapeForTerminal(text);
    require(isHarmless(shown));
    require(escapeForTerminal(shown) == shown);
    require(isHarmless(text) == (shown == text));
    // One byte becomes four characters at most.
    require(shown.size() >= size && shown.size() <= 4 * size);
    require(std::count(shown.begin(), shown.end(), '\n') ==
            std::count(text.begin(), text.end(), '\n'));
    return 0;
}
