#include "PathText.h"

#include "Text.h"

namespace pathtext {

namespace {

constexpr char kPlainCharacters[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_./:=,+@%-";

bool isQuoted(const std::string& value) {
    return value.size() >= 2 && value.front() == '"' && value.back() == '"';
}

}  // namespace

std::string unquote(const std::string& value) {
    return isQuoted(value) ? value.substr(1, value.size() - 2) : value;
}

std::string optionValue(const std::string& path) {
    const bool needed =
        isQuoted(path) || path.find_first_of(Text::kWhiteSpace) != std::string::npos;
    return needed ? "\"" + path + "\"" : path;
}

std::string shellWord(const std::string& text) {
    if (!text.empty() && text.find_first_not_of(kPlainCharacters) == std::string::npos) {
        return text;
    }
    std::string quoted = "'";
    for (const char c : text) {
        quoted += c == '\'' ? "'\\''" : std::string(1, c);
    }
    return quoted + "'";
}

std::string directoryOf(const std::string& path) {
    const std::string::size_type slash = path.rfind('/');
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string baseNameOf(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

}  // namespace pathtext
