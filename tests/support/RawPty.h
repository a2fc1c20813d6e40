#pragma once

#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <termios.h>
#include <unistd.h>

#include <pty.h>

#include "StandardStreams.h"
#include "UniqueFd.h"

// A pseudo terminal whose user is the test. Its near end can be put in the place of standard input
// and output; nobody answers questions unless the test does.
class RawPty {
public:
    explicit RawPty(unsigned short rows = 24, unsigned short columns = 80) {
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

    int nearEnd() const { return near.get(); }

    void type(const std::string& bytes) const {
        if (write(user.get(), bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
            throw std::runtime_error("cannot type");
        }
    }
    // What has been shown so far and not asked for yet; waits until it ends with the given text, or
    // the limit has passed.
    std::string shown(const std::string& lastPart, int limitMs = 3000) const {
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
    // As the editor would; what is typed before it starts is then not edited by the terminal.
    void enterKeyMode() const {
        termios keys = mode();
        keys.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
        tcsetattr(near.get(), TCSANOW, &keys);
    }
    void hangUp() { user.reset(); }

    bool echoes() const { return (mode().c_lflag & ECHO) != 0; }
    bool waitsForEnter() const { return (mode().c_lflag & ICANON) != 0; }
    termios mode() const {
        termios now = {};
        if (tcgetattr(near.get(), &now) != 0) {
            throw std::runtime_error("cannot read the terminal's mode");
        }
        return now;
    }

private:
    UniqueFd user;
    UniqueFd near;
};
