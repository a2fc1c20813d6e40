#include "ResultBlocks.h"

#include <cctype>

std::size_t runTimeLength(const std::string& text, std::size_t at) {
    if (at >= text.size() || text[at] != '(') {
        return 0;
    }
    std::size_t end = at + 1;
    while (end < text.size() && std::isdigit(static_cast<unsigned char>(text[end])) != 0) {
        ++end;
    }
    return end > at + 1 && text.compare(end, 3, "ms)") == 0 ? end + 3 - at : 0;
}

std::string withoutTimes(const std::string& text) {
    std::string result;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = runTimeLength(text, at);
        result += length > 0 ? "(ms)" : text.substr(at, 1);
        at += length > 0 ? length : 1;
    }
    return result;
}

std::vector<std::string> blockNames(const std::string& output) {
    std::vector<std::string> names;
    for (std::size_t at = 0; at < output.size();) {
        const std::size_t close = output.find("] ", at);
        const std::size_t end = output.find('\n', at);
        if (output[at] == '[' && close < end && runTimeLength(output, close + 2) > 0) {
            names.push_back(output.substr(at + 1, close - at - 1));
        }
        at = end == std::string::npos ? output.size() : end + 1;
    }
    return names;
}
