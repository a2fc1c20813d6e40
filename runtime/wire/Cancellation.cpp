#include "Cancellation.h"

#include <sys/eventfd.h>

Cancellation::Cancellation() : event(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

void Cancellation::cancel() noexcept {
    if (!cancelled.exchange(true, std::memory_order_acq_rel)) {
        // Cannot fail where there is an event: the counter is far from its end.
        static_cast<void>(::eventfd_write(event.get(), 1));
    }
}
