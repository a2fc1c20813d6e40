#pragma once

#include <string>

// The text with every run time of a result block, "(12ms)", written as "(Nms)".
inline std::string timeless(const std::string& text) {
    constexpr char kDigits[] = "0123456789";
    std::string result;
    std::size_t at = 0;
    for (std::size_t open; (open = text.find('(', at)) != std::string::npos;) {
        const std::size_t behind = text.find_first_not_of(kDigits, open + 1);
        result += text.substr(at, open + 1 - at);
        at = open + 1;
        if (behind != std::string::npos && behind > at && text.compare(behind, 3, "ms)") == 0) {
            result += "N";
            at = behind;
        }
    }
    return result + text.substr(at);
}
