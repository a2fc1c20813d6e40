#pragma once

#include <ctime>
#include <map>
#include <memory>
#include <mutex>
#include <sys/stat.h>
#include <sys/types.h>
#include <tuple>

#include "SharedDigest.h"

// The digests that are being made, by the state of their files. Safe from any thread.
class SharedDigests {
public:
    SharedDigests() = default;
    SharedDigests(const SharedDigests&) = delete;
    SharedDigests& operator=(const SharedDigests&) = delete;

    // The one for this state of this file. Who asks keeps the file open for as long as the digest.
    std::shared_ptr<SharedDigest> of(const struct stat& file);

private:
    // Device, inode, size, and the two times that a change of the content changes.
    using FileState = std::tuple<dev_t, ino_t, off_t, time_t, long, time_t, long>;

    std::mutex mutex;
    std::map<FileState, std::weak_ptr<SharedDigest>> digests;  // guarded by mutex
};
