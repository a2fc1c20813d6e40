#include "SharedDigest.h"

#include "CException.h"

namespace {

[[noreturn]] void fail() {
    throw CException("cannot calculate a SHA-256 digest");
}

}  // namespace

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
