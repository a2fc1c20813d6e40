#pragma once

#include <mutex>

#include "CResult.h"

// The place where one worker leaves the outcome of its run and where the engine picks it up. Both
// sides hold it by shared pointer, because either may be gone first: the engine gives up a worker
// that is late, and the worker may go on for as long as its node hangs.
// May be used by both threads at once.
class CommandOutcome {
public:
    CommandOutcome() = default;
    CommandOutcome(const CommandOutcome&) = delete;
    CommandOutcome& operator=(const CommandOutcome&) = delete;

    // The worker's side: leaves the outcome, unless the engine has closed the place. True when it
    // was taken.
    bool publish(CResult&& outcome);

    // The engine's side: nothing is taken from now on. True when a worker had finished in time;
    // its outcome is then moved to *outcome, which otherwise stays as it is.
    bool close(CResult* outcome);

private:
    std::mutex mutex;
    bool published = false;
    bool closed = false;
    CResult result;
};
