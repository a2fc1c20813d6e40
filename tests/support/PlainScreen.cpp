#include "PlainScreen.h"

#include <stdexcept>

PlainScreen::PlainScreen(int rowCount, int columnCount)
    : columns(columnCount), cells(static_cast<std::size_t>(rowCount), std::string(width(), ' ')) {}

void PlainScreen::take(const std::string& bytes) {
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        if (bytes[at] == '\x1b') {
            if (bytes.compare(at, 4, "\x1b[6n") == 0) {
                at += 3;
                continue;
            }
            if (at + 2 >= bytes.size() || bytes[at + 1] != '[') {
                throw std::runtime_error("an unknown sequence");
            }
            step(bytes[at + 2]);
            at += 2;
        } else if (bytes[at] == '\n') {
            x = 0;
            step('B');
        } else if (bytes[at] != '\a') {
            put(bytes[at]);
        }
    }
}

std::string PlainScreen::text() const {
    std::string all;
    for (const std::string& line : cells) {
        all += line;
    }
    all.erase(all.find_last_not_of(' ') + 1);
    return all;
}

std::string PlainScreen::line(int index) const {
    std::string one = cells.at(static_cast<std::size_t>(index));
    one.erase(one.find_last_not_of(' ') + 1);
    return one;
}

void PlainScreen::step(char direction) {
    pendingWrap = false;
    switch (direction) {
        case 'A':
            y = y > 0 ? y - 1 : 0;
            break;
        case 'B':
            if (y + 1 < static_cast<int>(cells.size())) {
                ++y;
            }
            break;
        case 'C':
            x = x + 1 < columns ? x + 1 : x;
            break;
        case 'D':
            x = x > 0 ? x - 1 : 0;
            break;
        default:
            throw std::runtime_error("an unknown sequence");
    }
}

void PlainScreen::put(char c) {
    if (pendingWrap) {
        x = 0;
        step('B');
    }
    cells.at(static_cast<std::size_t>(y))[static_cast<std::size_t>(x)] = c;
    if (x + 1 == columns) {
        pendingWrap = true;
    } else {
        ++x;
    }
}
