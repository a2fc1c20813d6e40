#include "PiecePipe.h"

bool PiecePipe::put(std::string& piece) {
    std::unique_lock<std::mutex> lock(mutex);
    if (count == kPieces) {
        // Half of the pieces at once: waking a thread for each would cost more than its digest.
        emptied.wait(lock, [this] { return count <= kPieces / 2 || abandoned; });
    }
    if (abandoned) {
        return false;
    }
    pieces[(first + count) % kPieces].swap(piece);
    if (++count == 1) {
        filled.notify_one();
    }
    return true;
}

bool PiecePipe::take(std::string& piece) {
    std::unique_lock<std::mutex> lock(mutex);
    filled.wait(lock, [this] { return count > 0 || ended || abandoned; });
    if (count == 0 || abandoned) {
        return false;
    }
    pieces[first].swap(piece);
    first = (first + 1) % kPieces;
    if (--count == kPieces / 2) {
        emptied.notify_one();
    }
    return true;
}

void PiecePipe::end() {
    const std::lock_guard<std::mutex> lock(mutex);
    ended = true;
    filled.notify_one();
}

void PiecePipe::abandon() {
    const std::lock_guard<std::mutex> lock(mutex);
    abandoned = true;
    filled.notify_one();
    emptied.notify_one();
}
