#include "TextCells.h"

#include <algorithm>
#include <cwchar>

namespace textcells {
namespace {

constexpr char kReplacement[] = "\xef\xbf\xbd";  // U+FFFD
constexpr char kNewlineSign[] = "\xe2\x86\xb5";  // U+21B5

struct Character {
    char32_t point = 0;
    std::size_t length = 1;
    bool good = false;
};

// One character of UTF-8; a byte that begins none counts alone.
Character characterAt(std::string_view text, std::size_t at) {
    const auto lead = static_cast<unsigned char>(text[at]);
    Character found;
    found.point = lead;
    if (lead < 0x80) {
        found.good = true;
        return found;
    }
    const std::size_t length = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
    if (lead < 0xc2 || lead > 0xf4 || at + length > text.size()) {
        return found;
    }
    char32_t point = lead & (0xffU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        const auto next = static_cast<unsigned char>(text[at + i]);
        if ((next & 0xc0U) != 0x80U) {
            return found;
        }
        point = (point << 6U) | (next & 0x3fU);
    }
    const char32_t lowest = length == 2 ? 0x80 : length == 3 ? 0x800 : 0x10000;
    if (point < lowest || point > 0x10ffff || (point >= 0xd800 && point <= 0xdfff)) {
        return found;
    }
    return {point, length, true};
}

bool isControl(char32_t point) {
    return point < 0x20 || (point >= 0x7f && point < 0xa0);
}

// 0 for a mark that stands on the character before it.
int widthOf(const Character& character) {
    if (!character.good || isControl(character.point)) {
        return 1;
    }
    const int width = ::wcwidth(static_cast<wchar_t>(character.point));
    return width < 0 ? 1 : width;
}

bool isPrintable(const Character& character) {
    return character.good && !isControl(character.point) &&
           ::wcwidth(static_cast<wchar_t>(character.point)) >= 0;
}

bool isMark(std::string_view text, std::size_t at) {
    return widthOf(characterAt(text, at)) == 0;
}

Cluster byteAt(std::string_view text, std::size_t at) {
    const auto byte = static_cast<unsigned char>(text[at]);
    if (byte == '\n') {
        return {1, 1, "$"};
    }
    return {1, 1, isControl(byte) ? std::string("?") : std::string(1, text[at])};
}

}  // namespace

Cluster clusterAt(std::string_view text, std::size_t at, TextCoding coding) {
    if (coding == TextCoding::kBytes) {
        return byteAt(text, at);
    }
    const Character base = characterAt(text, at);
    Cluster cluster;
    cluster.length = base.length;
    if (base.point == '\n') {
        cluster.cells = 1;
        cluster.shown = kNewlineSign;
        return cluster;
    }
    cluster.cells = widthOf(base);
    if (cluster.cells == 0) {
        cluster.cells = 1;
        cluster.length = 0;
        cluster.shown = " ";
    } else {
        cluster.shown = isPrintable(base) ? std::string(text.substr(at, base.length)) : "?";
    }
    for (std::size_t next = at + cluster.length; next < text.size() && isMark(text, next);
         next = at + cluster.length) {
        const Character mark = characterAt(text, next);
        cluster.shown += text.substr(next, mark.length);
        cluster.length += mark.length;
    }
    return cluster;
}

std::size_t nextBoundary(std::string_view text, std::size_t at, TextCoding coding) {
    return at >= text.size() ? text.size() : at + clusterAt(text, at, coding).length;
}

std::size_t previousBoundary(std::string_view text, std::size_t at, TextCoding coding) {
    if (at == 0) {
        return 0;
    }
    std::size_t place = at - 1;
    if (coding == TextCoding::kBytes) {
        return place;
    }
    // A character has at most four bytes; a byte that belongs to none counts alone.
    const auto toCharacter = [&] {
        for (std::size_t back = std::min<std::size_t>(3, place); back > 0; --back) {
            const Character found = characterAt(text, place - back);
            if (found.good && found.length == back + 1) {
                place -= back;
                return;
            }
        }
    };
    toCharacter();
    while (place > 0 && isMark(text, place) && text[place - 1] != '\n') {
        --place;
        toCharacter();
    }
    return place;
}

std::size_t boundaryFrom(std::string_view text, std::size_t at, TextCoding coding) {
    if (at >= text.size()) {
        return text.size();
    }
    if (at == 0 || coding == TextCoding::kBytes) {
        return at;
    }
    const std::size_t before = previousBoundary(text, at, coding);
    const std::size_t end = nextBoundary(text, before, coding);
    return end > at ? end : at;
}

std::string cleaned(std::string_view text, TextCoding coding, bool newlines) {
    std::string result;
    result.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        const Character found = coding == TextCoding::kUtf8
                                    ? characterAt(text, at)
                                    : Character{static_cast<unsigned char>(text[at]), 1, true};
        if (found.point == '\r' || found.point == '\n') {
            result += newlines ? '\n' : ' ';
            if (found.point == '\r' && at + 1 < text.size() && text[at + 1] == '\n') {
                ++at;
            }
        } else if (found.point == '\t') {
            result += ' ';
        } else if (!found.good) {
            result += kReplacement;
        } else if (!isControl(found.point)) {
            result += text.substr(at, found.length);
        }
        at += found.length;
    }
    return result;
}

}  // namespace textcells
