#include "ShellSignals.h"

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <unistd.h>

#include "Terminal.h"

namespace {

void writeLine(const char* text, std::size_t length) {
    std::size_t done = 0;
    while (done < length) {
        const ssize_t written = ::write(STDOUT_FILENO, text + done, length - done);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return;
        }
        done += static_cast<std::size_t>(written);
    }
}

}  // namespace

void signalHandler(int sig) {
    const int savedErrno = errno;
    if (sig == SIGINT) {
        Terminal::dropTypedAhead();
        constexpr char kText[] = "Do not use Ctrl+C to terminate this program.\n";
        writeLine(kText, sizeof kText - 1);
    } else {
        // The number is put together by hand: printf is not safe in a handler.
        char text[48] = "Catch a signal ";
        char* end = text + std::strlen(text);
        char digits[12];
        int count = 0;
        unsigned int rest =
            sig < 0 ? 0U - static_cast<unsigned int>(sig) : static_cast<unsigned int>(sig);
        do {
            digits[count++] = static_cast<char>('0' + rest % 10);
            rest /= 10;
        } while (rest != 0);
        if (sig < 0) {
            *end++ = '-';
        }
        while (count > 0) {
            *end++ = digits[--count];
        }
        *end++ = '\n';
        writeLine(text, static_cast<std::size_t>(end - text));
    }
    errno = savedErrno;
}

void shellsignals::install() {
    struct sigaction action {};
    action.sa_handler = &signalHandler;
    sigemptyset(&action.sa_mask);
    static_cast<void>(::sigaction(SIGINT, &action, nullptr));
    // A node or a pager that goes away must not take the shell along, nor a file that may not grow.
    action.sa_handler = SIG_IGN;
    static_cast<void>(::sigaction(SIGPIPE, &action, nullptr));
    static_cast<void>(::sigaction(SIGXFSZ, &action, nullptr));
}
