#include "UniqueFd.h"

#include <cerrno>
#include <unistd.h>

void UniqueFd::reset(int descriptor) {
    if (fd >= 0) {
        const int savedErrno = errno;
        ::close(fd);
        errno = savedErrno;
    }
    fd = descriptor;
}
