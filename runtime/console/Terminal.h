#pragma once

#include <chrono>
#include <cstddef>
#include <ctime>
#include <functional>
#include <string>
#include <sys/types.h>

// Standard input as a terminal: single keys, the cursor position, and the terminal's mode.
// Standard input that is no terminal works too; it is read byte by byte, so that what is left stays
// for a child.
//
// While keys are read, echo and line buffering are off and nothing else of the terminal's mode is
// changed. Outside a Hold that lasts for one key. The mode found is put back when the hold ends, at
// exit, before a fatal signal ends the process and before Ctrl+Z stops it, and is taken again by
// the continued process. Belongs to the main thread, except where a member says otherwise.
class Terminal {
public:
    // Keeps the terminal in key mode from here to the end of the object's life, so that keys typed
    // between two reads are not echoed by the terminal. What has been typed ahead by then is read
    // before the mode is put back; the next key comes from there. Holds nest: the mode ends with
    // the outermost.
    class Hold {
    public:
        // onResume is called from readKey, in the reading thread, after the process was stopped and
        // continued: the place to draw again what the user was looking at.
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

    // One byte, without echo and without waiting for Enter; -1 at the end of input only. Flushes
    // std::cout before it waits, so that whatever was written so far can be seen.
    int readKey();
    // True when the last end of input was the loss of the terminal, not the end of a file.
    bool isHungUp() const { return hungUp; }

    // Counted from 1; 0, 0 when the terminal does not answer within 250 ms. Keys that come before
    // the answer are kept for readKey, and an answer that comes too late never shows up as keys.
    // Within one hold a terminal that did not answer is not asked again. Nothing is asked unless
    // standard input and standard output are both terminals; an answer that stands in the input
    // all the same is taken.
    void cursorPosition(unsigned int& row, unsigned int& column);

    // Puts the mode back in spite of the holds, for a command that is about to run. Until one of
    // them is renewed, only a hold that begins later, or else a single key, takes the mode.
    void release();

    // Forgets what was typed ahead, as the terminal itself does on Ctrl+C. For signal handlers and
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
