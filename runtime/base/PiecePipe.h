#pragma once

#include <array>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>

// Passes pieces of a file from one thread to one other thread, in order, a few at a time. Nothing
// is copied, and memory is used again: every call exchanges the caller's string with one that the
// other thread has finished with.
class PiecePipe {
public:
    static constexpr std::size_t kPieces = 8;

    PiecePipe() = default;
    PiecePipe(const PiecePipe&) = delete;
    PiecePipe& operator=(const PiecePipe&) = delete;

    // Waits until there is room. False when the pipe was abandoned.
    bool put(std::string& piece);
    // Waits for a piece. False after the last, and when the pipe was abandoned.
    bool take(std::string& piece);
    // The producer puts nothing more. What is in the pipe can still be taken.
    void end();
    // Either end gives up. Waiting calls return, and what is in the pipe is lost.
    void abandon();

private:
    std::mutex mutex;
    // All below guarded by mutex.
    std::condition_variable filled;
    std::condition_variable emptied;
    std::array<std::string, kPieces> pieces;
    std::size_t first = 0;
    std::size_t count = 0;
    bool ended = false;
    bool abandoned = false;
};
