#include "ShellSignals.h"

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <unistd.h>

#include "Posix.h"
#include "Terminal.h"

void signalHandler(int sig) {
    const int savedErrno = errno;
    if (sig == SIGINT) {
        Terminal::dropTypedAhead();
        constexpr char kText[] = "Do not use Ctrl+C to terminate this program.\n";
        static_cast<void>(Posix::writeAll(STDOUT_FILENO, kText));
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
        static_cast<void>(
            Posix::writeAll(STDOUT_FILENO, {text, static_cast<std::size_t>(end - text)}));
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
