#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// How far a command on nodes is, at one moment.
struct Progress {
    std::size_t total = 0;
    std::size_t done = 0;    // ended in any way
    std::size_t failed = 0;  // of these, not ok
    std::vector<std::string> awaited;
    long ms = 0;  // since the command began
    // Of file transfers: bytes moved and to be moved, of all nodes together.
    std::optional<std::uint64_t> bytes;
    std::uint64_t bytesInAll = 0;
};

// As one line of at most columns - 1 cells, so that a terminal never wraps it. What does not fit is
// cut, with "..." at its end.
//     12 of 64 done, 1 failed, awaited: node_[0003-0009] 3.2 s
//     12 of 64 done, 1.5 of 4.0 GiB, 310 MiB/s, 8.2 s left, awaited: node_[0003-0009] 3.2 s
std::string progressText(const Progress& progress, unsigned int columns);

// The line at the bottom of a terminal that shows how far a command is: after half a second, at
// most ten times a second, erased before anything else is printed. Whoever prints calls erase()
// first. It is drawn on one descriptor, which stays the caller's, and by one thread. The destructor
// erases it.
class ProgressLine {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::milliseconds kFirst{500};
    static constexpr std::chrono::milliseconds kPause{100};

    // A descriptor below 0 draws nothing.
    ProgressLine(int terminal, Clock::time_point commandBegan);
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;
    ~ProgressLine();

    // When the line should be drawn next; Clock::time_point::max() when it never is.
    Clock::time_point due() const;
    // Draws, if it is due and the line has changed.
    void draw(const Progress& progress, unsigned int columns, Clock::time_point now);
    void erase();

private:
    void write(const std::string& bytes) const;

    const int descriptor;
    Clock::time_point next;
    std::string shown;  // empty: no line is on the screen
};
