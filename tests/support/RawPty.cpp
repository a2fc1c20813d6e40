#include "RawPty.h"

#include <poll.h>
#include <stdexcept>

#include <pty.h>

RawPty::RawPty(unsigned short rows, unsigned short columns) {
    winsize size = {};
    size.ws_row = rows;
    size.ws_col = columns;
    int ends[2];
    if (openpty(&ends[0], &ends[1], nullptr, nullptr, &size) != 0) {
        throw std::runtime_error("cannot open a pseudo terminal");
    }
    user.reset(ends[0]);
    near.reset(ends[1]);
    fcntl(user.get(), F_SETFD, FD_CLOEXEC);
    fcntl(near.get(), F_SETFD, FD_CLOEXEC);
}

void RawPty::type(const std::string& bytes) const {
    if (write(user.get(), bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
        throw std::runtime_error("cannot type");
    }
}

std::string RawPty::shown(const std::string& lastPart, int limitMs) const {
    std::string text;
    while (text.size() < lastPart.size() ||
           text.compare(text.size() - lastPart.size(), lastPart.size(), lastPart) != 0) {
        pollfd watched = {user.get(), POLLIN, 0};
        char buffer[4096];
        if (poll(&watched, 1, limitMs) <= 0) {
            break;
        }
        const ssize_t got = read(user.get(), buffer, sizeof buffer);
        if (got <= 0) {
            break;
        }
        text.append(buffer, static_cast<std::size_t>(got));
    }
    return text;
}

void RawPty::enterKeyMode() const {
    termios keys = mode();
    keys.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    tcsetattr(near.get(), TCSANOW, &keys);
}

termios RawPty::mode() const {
    termios now = {};
    if (tcgetattr(near.get(), &now) != 0) {
        throw std::runtime_error("cannot read the terminal's mode");
    }
    return now;
}
