#pragma once

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <functional>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <pty.h>
#include <vterm.h>

#include "EditorKeys.h"
#include "UniqueFd.h"

// A program on a terminal of its own, watched as a user would: keys go in, and what counts is the
// screen. The screen is that of a real terminal emulator (libvterm), which also answers the
// program's questions. Nothing is ever waited for by time alone: see until().
//
// When a test has failed by the end of the object's life, the whole dialogue is printed.
class PtyTerminal {
public:
    struct Options {
        int rows = 24;
        int columns = 80;
        // Changes to the environment; no value takes the variable out.
        std::map<std::string, std::optional<std::string>> environment = {{"TERM", "xterm"}};
        std::string directory = "/";
        bool answersQuestions = true;
        bool knowsItsSize = true;  // otherwise it says 0 rows and 0 columns
    };
    struct Position {
        int row = 0;  // both from 0
        int column = 0;
        bool operator==(const Position& other) const {
            return row == other.row && column == other.column;
        }
    };

    explicit PtyTerminal(std::vector<std::string> arguments) : PtyTerminal(arguments, Options()) {}
    PtyTerminal(std::vector<std::string> arguments, Options wanted);
    PtyTerminal(const PtyTerminal&) = delete;
    PtyTerminal& operator=(const PtyTerminal&) = delete;
    ~PtyTerminal();

    // Keys as in EditorKeys.h: "cd no<tab><cr>".
    void type(const std::string& symbols) { send(keys::typed(symbols)); }
    // Bytes, however many; reads what is shown meanwhile, as a terminal does.
    void send(const std::string& bytes);

    // Reads and shows until the condition holds; false when it does not within the limit.
    bool until(const std::function<bool()>& condition, int limitMs = 10000);
    bool untilShown(const std::string& text, int limitMs = 10000);
    // The row the cursor is in, as it should become, with the cursor behind its last character.
    bool untilLine(const std::string& text, int limitMs = 10000);
    // Waits for the end of the program; its status as from waitpid.
    std::optional<int> end(int limitMs = 10000);
    bool hasEnded();

    // Trailing blanks are cut.
    std::string row(int y) const;
    // All rows, without the empty ones at the bottom.
    std::vector<std::string> rows() const;
    // What has scrolled off the top, oldest first, then the rows of the screen.
    std::vector<std::string> everything() const;
    bool shows(const std::string& text) const;
    Position cursor() const;
    // The row of the cursor up to the cursor, trailing blanks kept.
    std::string lineAtCursor() const;
    void resize(int newRows, int newColumns);
    // The mode that the program has set.
    bool echoes() const { return (mode().c_lflag & ECHO) != 0; }
    bool inKeyMode() const { return (mode().c_lflag & (ECHO | ICANON)) == 0; }
    termios mode() const;
    pid_t foregroundGroup() const { return tcgetpgrp(terminal.get()); }

    // Closes the user's end, as a lost connection does.
    void hangUp() { terminal.reset(); }
    pid_t pid() const { return child; }
    int bells() const { return bellCount; }
    // All bytes that the program has written.
    const std::string& received() const { return incoming; }

private:
    static winsize sizeOf(int rows, int columns);

    // In the child: becomes the program or ends.
    [[noreturn]] void becomeProgram(const std::vector<std::string>& arguments) const;
    void makeScreen();

    // Moves bytes both ways; waits at most that long for something to move.
    void pump(int limitMs);
    void note(const std::string& direction, const std::string& bytes);
    static std::string encode(std::uint32_t c);

    Options options;
    UniqueFd terminal;
    pid_t child = -1;
    std::optional<int> status;
    VTerm* emulator = nullptr;
    VTermScreen* screen = nullptr;
    VTermScreenCallbacks callbacks = {};
    std::string incoming;
    std::string outgoing;
    std::string dialogue;
    std::string lastDirection;
    std::vector<std::string> scrolledOff;
    int bellCount = 0;
};
