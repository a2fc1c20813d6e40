#include "Memory.h"

#include <cstdint>
#include <sys/mman.h>
#include <unistd.h>

#include <link.h>
#include <malloc.h>

namespace memory {
namespace {

int releaseFile(dl_phdr_info* object, std::size_t /*size*/, void* /*unused*/) {
    const auto page = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
    for (int i = 0; i < object->dlpi_phnum; ++i) {
        const auto& segment = object->dlpi_phdr[i];
        // One that may be written to has been, by the loader at least.
        if (segment.p_type != PT_LOAD || (segment.p_flags & PF_W) != 0) {
            continue;
        }
        const std::uintptr_t first = (object->dlpi_addr + segment.p_vaddr) & ~(page - 1);
        const std::uintptr_t last = object->dlpi_addr + segment.p_vaddr + segment.p_memsz;
        // NOLINTNEXTLINE(performance-no-int-to-ptr): addresses are numbers there
        if (::madvise(reinterpret_cast<void*>(first), last - first, MADV_DONTNEED) != 0) {
            continue;  // the kernel's own, which has no file
        }
    }
    return 0;
}

}  // namespace

void releaseWhatTheStartNeeded() {
    ::malloc_trim(0);
    ::dl_iterate_phdr(&releaseFile, nullptr);
}

}  // namespace memory
