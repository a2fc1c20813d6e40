#include "ResultMemory.h"

#include <cstddef>

#include <malloc.h>

namespace resultmemory {
namespace {

constexpr int kMiB = 1024 * 1024;
constexpr int kMapped = 32 * kMiB;     // the allocator has no larger limit
constexpr int kKeptOnTop = 64 * kMiB;  // at each end of a heap
constexpr std::size_t kMuch = 32 * kMiB;

}  // namespace

void keepForTheNextResult() {
    // Without it the shell is only slower.
    static_cast<void>(::mallopt(M_MMAP_THRESHOLD, kMapped));
    static_cast<void>(::mallopt(M_TRIM_THRESHOLD, kKeptOnTop));
}

void giveBack() {
    if (::mallinfo2().fordblks > kMuch) {
        ::malloc_trim(0);
    }
}

}  // namespace resultmemory
