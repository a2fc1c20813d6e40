#include "SharedDigest.h"

#include <iterator>
#include <map>
#include <tuple>

#include "CException.h"

namespace {

using FileState = std::tuple<dev_t, ino_t, off_t, time_t, long, time_t, long>;

FileState stateOf(const struct stat& file) {
    return {file.st_dev,          file.st_ino,         file.st_size,        file.st_mtim.tv_sec,
            file.st_mtim.tv_nsec, file.st_ctim.tv_sec, file.st_ctim.tv_nsec};
}

struct Table {
    std::mutex mutex;
    std::map<FileState, std::weak_ptr<SharedDigest>> digests;
};

Table& table() {
    // Never destroyed, since threads may outlive main.
    static auto* const only = new Table;
    return *only;
}

[[noreturn]] void fail() {
    throw CException("cannot calculate a SHA-256 digest");
}

}  // namespace

std::shared_ptr<SharedDigest> SharedDigest::of(const struct stat& file) {
    Table& all = table();
    const std::lock_guard<std::mutex> lock(all.mutex);
    for (auto entry = all.digests.begin(); entry != all.digests.end();) {
        entry = entry->second.expired() ? all.digests.erase(entry) : std::next(entry);
    }
    std::weak_ptr<SharedDigest>& known = all.digests[stateOf(file)];
    std::shared_ptr<SharedDigest> found = known.lock();
    if (!found) {
        found = std::make_shared<SharedDigest>();
        known = found;
    }
    return found;
}

void SharedDigest::add(std::uint64_t offset, const void* bytes, std::size_t length) {
    std::unique_lock<std::mutex> lock(mutex);
    idle.wait(lock, [&] { return !busy || offset <= digested; });
    if (busy || offset < digested) {
        return;
    }
    if (failed || offset > digested) {
        fail();
    }
    busy = true;
    lock.unlock();
    bool added = true;
    try {
        digest.update(bytes, length);
    } catch (const CException&) {
        added = false;
    }
    lock.lock();
    busy = false;
    failed = !added;
    digested += length;
    idle.notify_all();
    if (failed) {
        fail();
    }
}

std::string SharedDigest::finish() {
    std::unique_lock<std::mutex> lock(mutex);
    idle.wait(lock, [this] { return !busy; });
    if (failed) {
        fail();
    }
    if (!result) {
        result = digest.finish();
    }
    return *result;
}
