#include "Cancellation.h"

#include <cerrno>
#include <cstring>
#include <string>
#include <sys/eventfd.h>

#include "CException.h"

Cancellation::Cancellation() : event(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!event) {
        throw CException(std::string("Cannot make an event: ") + std::strerror(errno) + ".");
    }
}

void Cancellation::cancel() noexcept {
    if (!cancelled.exchange(true, std::memory_order_acq_rel)) {
        // Cannot fail: the counter is far from its end.
        static_cast<void>(::eventfd_write(event.get(), 1));
    }
}
