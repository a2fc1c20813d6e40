#include "Descriptors.h"

#include <algorithm>
#include <climits>
#include <unistd.h>

namespace descriptors {

void closeAllBut(std::vector<int> kept) {
    std::sort(kept.begin(), kept.end());
    int next = STDERR_FILENO + 1;
    for (const int fd : kept) {
        if (fd > next) {
            ::close_range(static_cast<unsigned int>(next), static_cast<unsigned int>(fd - 1), 0);
        }
        next = std::max(next, fd + 1);
    }
    ::close_range(static_cast<unsigned int>(next), UINT_MAX, 0);
}

}  // namespace descriptors
