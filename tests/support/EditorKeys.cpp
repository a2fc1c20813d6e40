#include "EditorKeys.h"

#include <map>
#include <stdexcept>

namespace keys {

std::string times(std::size_t n, const std::string& text) {
    std::string all;
    for (std::size_t i = 0; i < n; ++i) {
        all += text;
    }
    return all;
}

std::string typed(const std::string& symbols) {
    static const std::map<std::string, std::string> names = {
        {"cr", "\r"},       {"lf", "\n"},       {"tab", "\t"},      {"esc", "\x1b"},
        {"bs", "\x7f"},     {"up", "\x1b[A"},   {"down", "\x1b[B"}, {"right", "\x1b[C"},
        {"left", "\x1b[D"}, {"ins", "\x1b[2~"}, {"del", "\x1b[3~"}, {"home", "\x1bOH"},
        {"end", "\x1bOF"},  {"lt", "<"}};
    std::string bytes;
    for (std::string::size_type at = 0; at < symbols.size(); ++at) {
        if (symbols[at] != '<') {
            bytes += symbols[at];
            continue;
        }
        const std::string::size_type close = symbols.find('>', at);
        const std::string name = symbols.substr(at + 1, close - at - 1);
        if (name.size() == 2 && name[0] == '^') {
            bytes += static_cast<char>(name[1] & 0x1f);
        } else if (names.count(name) == 1) {
            bytes += names.at(name);
        } else {
            throw std::invalid_argument("no such key: " + name);
        }
        at = close;
    }
    return bytes;
}

}  // namespace keys
