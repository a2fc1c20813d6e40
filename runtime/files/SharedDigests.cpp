#include "SharedDigests.h"

#include <iterator>

std::shared_ptr<SharedDigest> SharedDigests::of(const struct stat& file) {
    const FileState state{file.st_dev,         file.st_ino,          file.st_size,
                          file.st_mtim.tv_sec, file.st_mtim.tv_nsec, file.st_ctim.tv_sec,
                          file.st_ctim.tv_nsec};
    const std::lock_guard<std::mutex> lock(mutex);
    for (auto entry = digests.begin(); entry != digests.end();) {
        entry = entry->second.expired() ? digests.erase(entry) : std::next(entry);
    }
    std::weak_ptr<SharedDigest>& known = digests[state];
    std::shared_ptr<SharedDigest> found = known.lock();
    if (!found) {
        found = std::make_shared<SharedDigest>();
        known = found;
    }
    return found;
}
