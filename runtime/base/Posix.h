#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <sys/types.h>

#include "UniqueFd.h"

// Help for system calls: reading and writing in full, errno as a text, a stream that closes itself.
// A signal never ends a call early. Any thread may call.
class Posix {
public:
    Posix() = delete;

    // Throws CException with "<what>: <the text of errno>".
    [[noreturn]] static void throwErrno(const std::string& what);

    // Repeats a call that a signal has interrupted (it returns less than 0, with EINTR).
    template <typename Call>
    static auto retried(Call call) {
        auto result = call();
        while (result < 0 && errno == EINTR) {
            result = call();
        }
        return result;
    }

    // open() with O_CLOEXEC added. None leaves the reason in errno.
    static UniqueFd open(const std::string& name, int flags, mode_t mode = 0);

    // Writes all of it; false leaves the reason in errno. writeAllAt() leaves the position alone.
    // Not for a non-blocking descriptor: EAGAIN is an error here. May be
    // called in a signal handler.
    [[nodiscard]] static bool writeAll(int fd, std::string_view bytes);
    [[nodiscard]] static bool writeAllAt(int fd, std::string_view bytes, off_t offset);

    // As many bytes as there are, at most size; -1 leaves the reason in errno. readAllAt() leaves
    // the position alone.
    [[nodiscard]] static ssize_t readAll(int fd, void* bytes, std::size_t size);
    [[nodiscard]] static ssize_t readAllAt(int fd, void* bytes, std::size_t size, off_t offset);

    // For streams that are only read: it ignores a failed close. A writer must call fclose() on the
    // released stream and check the result.
    struct FileCloser {
        void operator()(FILE* file) const { static_cast<void>(std::fclose(file)); }
    };
    using File = std::unique_ptr<FILE, FileCloser>;

    // fopen(); null leaves the reason in errno. Give "e" in the mode: children must not inherit it.
    static File openFile(const std::string& name, const char* mode);
};
