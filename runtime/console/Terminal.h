#pragma once

#include <chrono>
#include <cstddef>
#include <ctime>
#include <functional>
#include <string>
#include <sys/types.h>

// Standard input as a terminal: single keys, the cursor position, and the terminal's mode. It works
// for other standard input too, and then reads byte by byte, so that a child gets the rest.
//
// While keys are read, echo and line buffering are off; nothing else of the terminal's mode
// changes. Without a Hold that lasts for one key. The mode found at first is restored when the hold
// ends, at exit, before a fatal signal ends the process and before Ctrl+Z stops it; the continued
// process sets its own again. Belongs to the main thread, except where a member says otherwise.
class Terminal {
public:
    // Keeps the terminal in key mode for the life of this object, so that the terminal does not
    // echo keys typed between two reads. Keys typed ahead by then are read before the old mode is
    // restored, and readKey returns them first. Holds nest; the mode ends with the outermost.
    class Hold {
    public:
        // readKey calls onResume, in the reading thread, after the process was stopped and
        // continued. It should draw again what the user was looking at.
        explicit Hold(Terminal& held, std::function<void()> onResume = nullptr);
        Hold(const Hold&) = delete;
        Hold& operator=(const Hold&) = delete;
        ~Hold();

        // Takes the mode again after release().
        void renew();

    private:
        Terminal& terminal;
        bool suspendedBefore;
    };

    // The one terminal of the process.
    static Terminal& standard();

    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;
    ~Terminal();

    // Returns one byte, without echo and without waiting for Enter; -1 at the end of input only.
    // Flushes std::cout before it waits, so that the user sees what was written.
    int readKey();
    // True when the last end of input was the loss of the terminal, not the end of a file.
    bool isHungUp() const { return hungUp; }

    // Row and column count from 1. They are 0 when the terminal does not answer within 250 ms; a
    // terminal that did not answer is not asked again within one hold. Keys that come before the
    // answer are kept for readKey, and an answer that comes too late does not appear as keys. The
    // terminal is asked only when standard input and standard output are both terminals; an answer
    // that is already in the input counts all the same.
    void cursorPosition(unsigned int& row, unsigned int& column);

    // Restores the old mode in spite of the holds, for a command that is about to run. Afterwards a
    // hold must be renewed, a new one begun, or a single key read, to set key mode again.
    void release();

    // Drops what was typed ahead, as the terminal itself does on Ctrl+C. For signal handlers and
    // any thread.
    static void dropTypedAhead() noexcept;

private:
    using Clock = std::chrono::steady_clock;

    // A cursor report among the bytes read ahead.
    struct Report {
        std::size_t begin = 0;
        std::size_t end = 0;
        unsigned int row = 0;
        unsigned int column = 0;
    };
    enum class Match { kNone, kPartial, kFull };
    enum class Filled { kBytes, kEnd, kLate };

    Terminal() = default;

    void enter();
    void leave();
    bool isHeld() const { return holds > 0 && !suspended; }
    void noticeOtherInput();
    void obeyDrop();
    bool waitForInput(const Clock::time_point* deadline);
    Filled fill(const Clock::time_point* deadline);
    void readWhatIsThere();
    Match matchReport(std::size_t at, Report& report) const;
    bool takeReport(Report& report);
    bool takeReportAtFront(Report& report, std::chrono::milliseconds patience);
    bool awaitReport(Report& report);

    std::string ahead;  // read but not yet handed out, from aheadBegin on
    std::size_t aheadBegin = 0;
    dev_t inputDevice = 0;  // the file that the bytes read ahead came from
    ino_t inputInode = 0;
    timespec inputChanged = {};
    std::function<void()> resumed;
    unsigned int unanswered = 0;  // questions for the cursor position that may still be answered
    unsigned int holds = 0;
    bool suspended = false;  // released in spite of the holds
    bool mute = false;       // the terminal has not answered within this hold
    bool burst = false;      // more keys have come at once than one was waited for
    bool isTerminal = false;
    bool hungUp = false;
};
