#pragma once

#include <fcntl.h>
#include <string>
#include <termios.h>
#include <unistd.h>

#include "StandardStreams.h"
#include "UniqueFd.h"

// A pseudo terminal whose user is the test. Its near end can be put in the place of standard input
// and output; nobody answers questions unless the test does.
class RawPty {
public:
    explicit RawPty(unsigned short rows = 24, unsigned short columns = 80);

    int nearEnd() const { return near.get(); }

    void type(const std::string& bytes) const;
    // What has been shown so far and not asked for yet; waits until it ends with the given text, or
    // the limit has passed.
    std::string shown(const std::string& lastPart, int limitMs = 3000) const;
    // As the editor would; what is typed before it starts is then not edited by the terminal.
    void enterKeyMode() const;
    void hangUp() { user.reset(); }

    bool echoes() const { return (mode().c_lflag & ECHO) != 0; }
    bool waitsForEnter() const { return (mode().c_lflag & ICANON) != 0; }
    termios mode() const;

private:
    UniqueFd user;
    UniqueFd near;
};
