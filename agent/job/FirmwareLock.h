#pragma once

#include <string>
#include <sys/types.h>

#include "EventLog.h"
#include "RunDirectory.h"

// The lock of the uninterruptible job of a node: there is at most one. Its supervisor holds it, and
// the job's processes hold it too, so that it stays taken should the supervisor be killed. Once the
// supervisor is gone and the job's shell has ended, the job has ended: what it left in the
// background keeps the lock no longer.
class FirmwareLock {
public:
    explicit FirmwareLock(const RunDirectory& runDirectory) : directory(runDirectory) {}

    // False when another job has it. what: the job, for whom and since when, in one line.
    // Where it is taken from the background of an ended job, the log names who held it.
    bool tryTake(const std::string& what, const EventLog& log);
    // Tells others which process is the job's shell; to be called as soon as it runs.
    void noteShell(pid_t shell) const;
    void release() { lock.release(); }
    // For the job, which inherits it.
    int descriptor() const { return lock.descriptor(); }

    // Whether a job has it now; looks, and is in nobody's way.
    static bool isTaken(const RunDirectory& directory);
    // The job that has it, as its supervisor said.
    static std::string holder(const RunDirectory& directory);

private:
    static constexpr char kName[] = "firmware.lock";

    static bool isAbandoned(const RunDirectory& directory);

    const RunDirectory& directory;
    RunLock lock;
    std::string note;
};
