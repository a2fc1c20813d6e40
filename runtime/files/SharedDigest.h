#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <sys/stat.h>

#include "FileDigest.h"

// The SHA-256 of a file that is sent to many nodes at a time, each by a thread that reads it for
// itself: made once, and not once for each of them. Whoever is furthest ahead adds what it has
// read; the others only pass. So no one waits for a slow one, nor for one that gives up half-way.
//
// Everyone sends the bytes that it has read itself. Should these differ from what another has read,
// the digest is not that of what was sent, and the node refuses the file.
//
// Safe from any thread. All must add the same pieces, from the first on.
class SharedDigest {
public:
    // The one for this state of this file. Who asks keeps the file open for as long as the digest.
    static std::shared_ptr<SharedDigest> of(const struct stat& file);

    SharedDigest() = default;
    SharedDigest(const SharedDigest&) = delete;
    SharedDigest& operator=(const SharedDigest&) = delete;

    // The next piece, which begins at that place in the file. Waits at most until another thread
    // has digested the piece before. Throws CException.
    void add(std::uint64_t offset, const void* bytes, std::size_t length);
    // The 32 raw bytes, when all pieces are added. Throws CException.
    std::string finish();

private:
    std::mutex mutex;
    std::condition_variable idle;
    bool busy = false;  // a thread is digesting the piece at "digested"
    bool failed = false;
    std::uint64_t digested = 0;
    FileDigest digest;  // belongs to the thread that is busy
    std::optional<std::string> result;
};
