#include "MacAddress.h"

#include "Text.h"

namespace macaddress {
namespace {

constexpr int kPairs = 6;

}  // namespace

bool isValid(const std::string& text, const std::string& separator) {
    std::string::size_type at = 0;
    for (int pair = 0; pair < kPairs; ++pair) {
        if (pair > 0) {
            if (text.compare(at, separator.size(), separator) != 0) {
                return false;
            }
            at += separator.size();
        }
        if (at + 2 > text.size() || !Text::isHexDigit(text[at]) ||
            !Text::isHexDigit(text[at + 1])) {
            return false;
        }
        at += 2;
    }
    return at == text.size();
}

}  // namespace macaddress
