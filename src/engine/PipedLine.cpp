#include "PipedLine.h"

#include <cerrno>
#include <chrono>
#include <poll.h>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

#include "CUtil.h"

namespace {

constexpr std::chrono::milliseconds kGrace{200};

bool carriesPipedLine(int descriptor) {
    struct stat status {};
    return ::fstat(descriptor, &status) == 0 &&
           (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode) || S_ISREG(status.st_mode));
}

// Waits until there is something to read; a negative limit waits for ever.
bool waitForInput(int descriptor, std::chrono::milliseconds limit) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point end = Clock::now() + limit;
    for (;;) {
        int left = -1;
        if (limit.count() >= 0) {
            const auto rest = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
            left = rest.count() > 0 ? static_cast<int>(rest.count()) : 0;
        }
        pollfd watched{descriptor, POLLIN, 0};
        const int ready = ::poll(&watched, 1, left);
        if (ready >= 0 || errno != EINTR) {
            return ready > 0;
        }
    }
}

std::string readLine(int descriptor) {
    std::string line;
    for (;;) {
        char byte = 0;
        const ssize_t count = ::read(descriptor, &byte, 1);
        if (count == 1 && byte != '\n') {
            line += byte;
        } else if (count < 0 && errno == EINTR) {
            continue;
        } else if (count < 0 && errno == EAGAIN) {
            static_cast<void>(waitForInput(descriptor, std::chrono::milliseconds(-1)));
        } else {
            return line;
        }
    }
}

}  // namespace

std::list<std::string> readPipedWords(int descriptor) {
    std::list<std::string> words;
    if (!carriesPipedLine(descriptor) ||
        (!CUtil::isDataAvailable(descriptor) && !waitForInput(descriptor, kGrace))) {
        return words;
    }
    std::string line = readLine(descriptor);
    CUtil::trim(line);
    std::istringstream stream(line);
    for (std::string word; stream >> word;) {
        words.push_back(word);
    }
    return words;
}
