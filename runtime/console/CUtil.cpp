#include "CUtil.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <ctime>
#include <poll.h>
#include <unistd.h>
#include <vector>

#include "ChildProcess.h"
#include "MacAddress.h"
#include "Terminal.h"
#include "Text.h"

namespace {

int runShell(const std::string& command, std::string* output, std::string* errorOutput) {
    ChildProcess::Request request;
    std::string dropped;
    request.commandLine = command;
    request.output = output != nullptr ? output : &dropped;
    request.errorOutput = errorOutput;
    const ChildProcess::Outcome outcome = ChildProcess::run(request);
    if (outcome.state == ChildProcess::Outcome::State::kNotStarted && output != nullptr) {
        *output = outcome.reason;
    }
    return outcome.exitCode();
}

}  // namespace

int CUtil::exec_cmd(std::string command, std::string* output) {
    return runShell(command, output, nullptr);
}

int CUtil::exec_cmd(std::string command, std::string* output, std::string* errorOutput) {
    return runShell(command, output, errorOutput);
}

bool CUtil::isDataAvailable(int fd) {
    pollfd watched{fd, POLLIN, 0};
    int ready = 0;
    do {
        ready = poll(&watched, 1, 0);
    } while (ready < 0 && errno == EINTR);
    return ready > 0 && (watched.revents & (POLLIN | POLLHUP)) != 0;
}

int CUtil::mygetch() {
    return Terminal::standard().readKey();
}

void CUtil::getCursorPosition(unsigned int& row, unsigned int& column) {
    Terminal::standard().cursorPosition(row, column);
}

void CUtil::sleep(unsigned long milliseconds) {
    timespec left{static_cast<time_t>(milliseconds / 1000),
                  static_cast<long>(milliseconds % 1000) * 1000000L};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

void CUtil::trim(std::string& text) {
    Text::trim(text);
}

void CUtil::trimTwoSpace(std::string& text) {
    text.erase(
        std::unique(text.begin(), text.end(), [](char a, char b) { return a == ' ' && b == ' '; }),
        text.end());
}

void CUtil::removeTailNewline(std::string* text) {
    if (text != nullptr) {
        text->erase(text->find_last_not_of("\r\n") + 1);
    }
}

void CUtil::removeTailQuestionMark(std::string* text) {
    if (text != nullptr && !text->empty() && text->back() == '?') {
        text->pop_back();
    }
}

void CUtil::makeNeatString(std::string* text) {
    if (text == nullptr) {
        return;
    }
    std::string neat;
    for (const char c : *text) {
        if (std::string_view(Text::kWhiteSpace).find(c) == std::string_view::npos) {
            neat += c;
        } else if (!neat.empty() && neat.back() != ' ') {
            neat += ' ';
        }
    }
    trim(neat);
    *text = neat;
}

void CUtil::toLower(std::string& text) {
    Text::toLower(text);
}

void CUtil::toUpper(std::string& text) {
    Text::toUpper(text);
}

std::list<std::string> CUtil::splitForTokens(std::string text, std::string separators) {
    std::list<std::string> tokens;
    splitForTokens(tokens, separators, text);
    return tokens;
}

void CUtil::splitForTokens(std::list<std::string>& tokens, std::string separators,
                           std::string text) {
    std::string token;
    for (std::string::size_type i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '"') {
            const std::string::size_type close = text.find('"', i + 1);
            if (close != std::string::npos) {
                token.append(text, i + 1, close - i - 1);
                i = close;
                continue;
            }
        }
        if (separators.find(c) == std::string::npos) {
            token += c;
        } else if (!token.empty()) {
            tokens.push_back(token);
            token.clear();
        }
    }
    if (!token.empty()) {
        tokens.push_back(token);
    }
}

bool CUtil::isFileExisted(std::string path) {
    return access(path.c_str(), F_OK) == 0;
}

std::string CUtil::getDateTimeString2() {
    const time_t now = time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    char text[32];
    const std::size_t length = strftime(text, sizeof text, "%Y%m%d_%H%M%S", &local);
    return std::string(text, length);
}

namespace {

constexpr std::string::size_type kMaxLabelBytes = 63;
constexpr std::string::size_type kMaxHostnameBytes = 253;

bool isLabel(const std::string& label) {
    if (label.empty() || label.size() > kMaxLabelBytes || label.front() == '-' ||
        label.back() == '-') {
        return false;
    }
    return std::all_of(label.begin(), label.end(),
                       [](char c) { return Text::isLetter(c) || Text::isDigit(c) || c == '-'; });
}

bool isNumber(const std::string& text) {
    // Nine digits are enough for every counter, and keep ranges within reason.
    return !text.empty() && text.size() <= 9 &&
           std::all_of(text.begin(), text.end(), Text::isDigit);
}

// One entry between brackets: a number, or first-last in ascending order. *widest becomes the
// longest text of the entry, if that is longer.
bool isRangeEntry(const std::string& entry, std::string::size_type* widest) {
    const std::string::size_type dash = entry.find('-');
    const std::string first = entry.substr(0, dash);
    const std::string last = dash == std::string::npos ? first : entry.substr(dash + 1);
    if (!isNumber(first) || !isNumber(last) || std::stol(first) > std::stol(last)) {
        return false;
    }
    *widest = std::max({*widest, first.size(), last.size()});
    return true;
}

// A host name that may hold one "[...]". It is checked with the widest number in place of the
// brackets; nothing is expanded, so the size of the range costs no memory.
bool isHostnamePattern(const std::string& pattern) {
    const std::string::size_type open = pattern.find('[');
    if (open == std::string::npos) {
        return CUtil::validateHostnameFormat(pattern);
    }
    const std::string::size_type close = pattern.find(']', open);
    if (close == std::string::npos) {
        return false;
    }
    std::string::size_type widest = 0;
    for (const std::string& entry : Text::split(pattern.substr(open + 1, close - open - 1), ',')) {
        if (!isRangeEntry(entry, &widest)) {
            return false;
        }
    }
    return CUtil::validateHostnameFormat(pattern.substr(0, open) + std::string(widest, '0') +
                                         pattern.substr(close + 1));
}

}  // namespace

bool CUtil::validateIPAddrFormat(std::string address, unsigned char version) {
    unsigned char parsed[sizeof(in6_addr)];
    // inet_pton is strict: four decimal parts, no leading zeros, nothing behind them.
    return inet_pton(version == 6 ? AF_INET6 : AF_INET, address.c_str(), parsed) == 1 &&
           address.find('\0') == std::string::npos;
}

bool CUtil::validateMACaddr(std::string address, std::string separator) {
    return macaddress::isValid(address, separator);
}

bool CUtil::validateHostnameFormat(std::string name) {
    if (name.empty() || name.size() > kMaxHostnameBytes) {
        return false;
    }
    const std::vector<std::string> labels = Text::split(name, '.');
    return std::all_of(labels.begin(), labels.end(), isLabel);
}

bool CUtil::validateHostnameRangeFormat(std::string range) {
    // Commas between brackets belong to the range, the others separate patterns.
    std::vector<std::string> patterns(1);
    bool inside = false;
    for (const char c : range) {
        if (c == '[' || c == ']') {
            if (inside == (c == '[')) {
                return false;
            }
            inside = c == '[';
        }
        if (c == ',' && !inside) {
            patterns.emplace_back();
        } else {
            patterns.back() += c;
        }
    }
    return !inside && std::all_of(patterns.begin(), patterns.end(), isHostnamePattern);
}
