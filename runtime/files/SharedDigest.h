#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "FileDigest.h"

// The SHA-256 of a file that several threads send at a time, each to another node. Every thread
// reads the file for itself, but the digest is calculated once: the thread that is furthest ahead
// adds its piece, the others skip it. So no thread waits for a slow one, nor for one that gives up.
//
// Every thread sends the bytes that it has read itself. If they differ from those that were
// digested, the digest does not match, and the node refuses the file.
//
// Safe from any thread. All threads must add the same pieces, beginning with the first.
class SharedDigest {
public:
    SharedDigest() = default;
    SharedDigest(const SharedDigest&) = delete;
    SharedDigest& operator=(const SharedDigest&) = delete;

    // Adds the piece that begins at this offset. Waits at most until another thread has digested
    // the piece before. Throws CException.
    void add(std::uint64_t offset, const void* bytes, std::size_t length);
    // The 32 raw bytes. Call it when all pieces are added. Throws CException.
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
