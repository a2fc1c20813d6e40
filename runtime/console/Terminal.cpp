#include "Terminal.h"

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <iostream>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "TerminalMode.h"

namespace {

constexpr int kInput = STDIN_FILENO;
constexpr std::chrono::milliseconds kAnswerTime{250};
// The bytes of one late answer follow one another at once.
constexpr std::chrono::milliseconds kRestOfAnswerTime{50};
constexpr std::chrono::milliseconds kRestOfPasteTime{5};
constexpr std::chrono::milliseconds kNoTime{0};
constexpr std::size_t kMostReadAhead = std::size_t{1024} * 1024;
constexpr unsigned int kMostPositionDigits = 5;

std::atomic<bool> dropRequested{false};
static_assert(std::atomic<bool>::is_always_lock_free, "set by signal handlers");

int millisecondsUntil(std::chrono::steady_clock::time_point deadline) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

}  // namespace

Terminal& Terminal::standard() {
    static Terminal terminal;
    return terminal;
}

Terminal::~Terminal() {
    release();
}

Terminal::Hold::Hold(Terminal& held, std::function<void()> onResume)
    : terminal(held), suspendedBefore(held.holds > 0 && held.suspended) {
    terminal.noticeOtherInput();
    ++terminal.holds;
    terminal.resumed = std::move(onResume);
    renew();
}

Terminal::Hold::~Hold() {
    terminal.mute = false;
    terminal.resumed = nullptr;
    if (terminal.holds == 1 || suspendedBefore) {
        terminal.release();
    }
    --terminal.holds;
}

void Terminal::Hold::renew() {
    terminal.suspended = false;
    terminal.enter();
}

void Terminal::release() {
    if (isHeld()) {
        // Whatever arrived up to now was typed for the shell. Left in the terminal, the part that a
        // long paste has not pushed through yet would be echoed by the terminal now and again by
        // the editor.
        readWhatIsThere();
    }
    suspended = true;
    TerminalMode::leave();
}

void Terminal::dropTypedAhead() noexcept {
    dropRequested.store(true);
}

void Terminal::enter() {
    isTerminal = TerminalMode::enter();
}

void Terminal::leave() {
    if (!isHeld()) {
        TerminalMode::leave();
    }
}

// Bytes read ahead belong to the file they came from.
void Terminal::noticeOtherInput() {
    struct stat status = {};
    if (fstat(kInput, &status) != 0) {
        return;
    }
    if (status.st_dev != inputDevice || status.st_ino != inputInode) {
        ahead.clear();
        aheadBegin = 0;
        unanswered = 0;
        hungUp = false;
        inputDevice = status.st_dev;
        inputInode = status.st_ino;
    }
    // A new pseudo terminal may have the number of an earlier one; it was not asked anything yet.
    if (status.st_ctim.tv_sec != inputChanged.tv_sec ||
        status.st_ctim.tv_nsec != inputChanged.tv_nsec) {
        unanswered = 0;
        inputChanged = status.st_ctim;
    }
}

void Terminal::obeyDrop() {
    if (dropRequested.exchange(false)) {
        ahead.clear();
        aheadBegin = 0;
    }
}

// False when the deadline has passed; null waits for ever.
bool Terminal::waitForInput(const Clock::time_point* deadline) {
    for (;;) {
        // The line is drawn again while waiting for a key, not while waiting for an answer.
        const int continued = deadline == nullptr ? TerminalMode::continuedDescriptor() : -1;
        pollfd watched[2] = {{kInput, POLLIN, 0}, {continued, POLLIN, 0}};
        const int ready = poll(watched, 2, deadline == nullptr ? -1 : millisecondsUntil(*deadline));
        if (ready < 0) {
            if (errno != EINTR) {
                return true;  // the read that follows says what is wrong
            }
            obeyDrop();
            continue;
        }
        if (watched[1].revents != 0) {
            std::uint64_t times = 0;
            if (read(continued, &times, sizeof times) > 0 && resumed) {
                resumed();
                std::cout.flush();
            }
        }
        if (watched[0].revents != 0) {
            return true;
        }
        if (ready == 0) {
            return false;
        }
    }
}

Terminal::Filled Terminal::fill(const Clock::time_point* deadline) {
    char buffer[4096];
    // Only the editor reads further. A single key, and input that is no terminal, leave the rest in
    // place.
    const std::size_t wanted = isHeld() && isTerminal ? sizeof buffer : 1;
    for (;;) {
        if (!waitForInput(deadline)) {
            return Filled::kLate;
        }
        // What is read now may have been typed after Ctrl+C: it must not be dropped later.
        obeyDrop();
        const ssize_t got = read(kInput, buffer, wanted);
        if (got > 0) {
            // An interrupt that came before these bytes must not take them along later.
            obeyDrop();
            ahead.append(buffer, static_cast<std::size_t>(got));
            burst = burst || got > 1;
            return Filled::kBytes;
        }
        if (got < 0 && (errno == EINTR || errno == EAGAIN)) {
            obeyDrop();
            continue;
        }
        // A terminal in key mode has no end of file: it has gone away.
        hungUp = isTerminal;
        return Filled::kEnd;
    }
}

void Terminal::readWhatIsThere() {
    if (!isTerminal) {
        return;
    }
    // A paste comes through the terminal in pieces.
    const std::chrono::milliseconds patience = burst ? kRestOfPasteTime : kNoTime;
    Clock::time_point deadline = Clock::now() + patience;
    while (ahead.size() - aheadBegin < kMostReadAhead && fill(&deadline) == Filled::kBytes) {
        deadline = Clock::now() + patience;
    }
    burst = false;
}

int Terminal::readKey() {
    if (!isHeld()) {
        noticeOtherInput();
    }
    obeyDrop();
    enter();
    int key = -1;
    Report late;
    while (key < 0) {
        while (unanswered > 0 && takeReportAtFront(late, kRestOfAnswerTime)) {
            --unanswered;
        }
        if (aheadBegin < ahead.size()) {
            key = static_cast<unsigned char>(ahead[aheadBegin++]);
            break;
        }
        ahead.clear();
        aheadBegin = 0;
        std::cout.flush();
        // A single failed write, for example after Ctrl+C, must not silence the shell for good.
        std::cout.clear();
        if (fill(nullptr) == Filled::kEnd) {
            break;
        }
    }
    leave();
    return key;
}

// ESC [ row ; column R
Terminal::Match Terminal::matchReport(std::size_t at, Report& report) const {
    const std::string::size_type end = ahead.size();
    std::size_t next = at;
    for (const char expected : {'\x1b', '['}) {
        if (next == end) {
            return Match::kPartial;
        }
        if (ahead[next++] != expected) {
            return Match::kNone;
        }
    }
    unsigned int numbers[2] = {0, 0};
    for (int i = 0; i < 2; ++i) {
        unsigned int digits = 0;
        while (next < end && ahead[next] >= '0' && ahead[next] <= '9' &&
               digits < kMostPositionDigits) {
            numbers[i] = numbers[i] * 10 + static_cast<unsigned int>(ahead[next++] - '0');
            ++digits;
        }
        if (next == end) {
            return Match::kPartial;
        }
        if (digits == 0 || ahead[next++] != (i == 0 ? ';' : 'R')) {
            return Match::kNone;
        }
    }
    report = Report{at, next, numbers[0], numbers[1]};
    return Match::kFull;
}

// Takes the first report among the bytes read ahead, wherever it stands.
bool Terminal::takeReport(Report& report) {
    for (std::size_t at = ahead.find('\x1b', aheadBegin); at != std::string::npos;
         at = ahead.find('\x1b', at + 1)) {
        if (matchReport(at, report) == Match::kFull) {
            ahead.erase(report.begin, report.end - report.begin);
            return true;
        }
    }
    return false;
}

// Takes a report only when the next key would be its first byte; waits for the rest of one that has
// begun. Never waits for the first byte.
bool Terminal::takeReportAtFront(Report& report, std::chrono::milliseconds patience) {
    while (aheadBegin < ahead.size()) {
        const Match match = matchReport(aheadBegin, report);
        if (match == Match::kFull) {
            aheadBegin = report.end;
            return true;
        }
        const Clock::time_point deadline = Clock::now() + patience;
        if (match == Match::kNone || fill(&deadline) != Filled::kBytes) {
            return false;
        }
    }
    return false;
}

// Answers come in the order of the questions, so the ones still due for earlier questions come
// first. If this one's does not come in time, the youngest answer seen is the best there is.
bool Terminal::awaitReport(Report& report) {
    const Clock::time_point deadline = Clock::now() + kAnswerTime;
    bool answered = false;
    ++unanswered;
    while (unanswered > 0) {
        if (takeReport(report)) {
            answered = true;
            --unanswered;
        } else if (ahead.size() - aheadBegin >= kMostReadAhead ||
                   fill(&deadline) != Filled::kBytes) {
            break;
        }
    }
    if (answered) {
        unanswered = 0;
    }
    return answered;
}

void Terminal::cursorPosition(unsigned int& row, unsigned int& column) {
    row = 0;
    column = 0;
    if (!isHeld()) {
        noticeOtherInput();
    }
    enter();
    Report report;
    bool answered = false;
    if (isTerminal && isatty(STDOUT_FILENO) == 1) {
        if (!mute) {
            std::cout << "\x1b[6n" << std::flush;
            answered = awaitReport(report);
            mute = isHeld() && !answered;
        }
    } else {
        const Clock::time_point now = Clock::now();
        answered = (aheadBegin < ahead.size() || fill(&now) == Filled::kBytes) &&
                   takeReportAtFront(report, kNoTime);
    }
    if (answered) {
        row = report.row;
        column = report.column;
    }
    leave();
}
