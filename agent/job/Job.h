#pragma once

#include <cstddef>
#include <sys/types.h>

#include "JobReport.h"
#include "JobRequest.h"
#include "UniqueFd.h"

// One job: a shell line in a process tree of its own, under a supervisor process.
//
//   session ──fork── supervisor ──fork── /bin/sh -c <line>
//
// The supervisor is a child subreaper, so every descendant of the job stays below it, setsid and
// double forks included. It keeps the time, and it ends an ordinary job when the time is up or when
// the session goes away, whichever way: the session's end of the control socket closes. An
// uninterruptible job it never touches; it waits for its end and logs it. The session may thus be
// killed at any moment, and the parser of network bytes is never what holds a firmware update.
//
// An ordinary job writes into a pipe that the session reads: who does not read blocks the job only.
// An uninterruptible one writes into a file, run/firmware.log, so that no reader's end can break
// it; the file stays until the next such job.
//
// Once the shell has ended by itself, background processes it left are left alone, as a service
// that was started must be.
class Job {
public:
    // Forks the supervisor. Throws CException when that fails.
    Job(const JobSettings& settings, const JobRequest& request);
    Job(const Job&) = delete;
    Job& operator=(const Job&) = delete;
    // Leaves the job to its supervisor, which ends it unless it has ended or is uninterruptible.
    ~Job() = default;

    // Readable when nextReport has something.
    int controlDescriptor() const { return control.get(); }
    JobReport nextReport();

    // Whether the supervisor was stopped, as by SIGSTOP, so that nobody keeps the job's time.
    bool isSupervisorStopped() const;
    // Kills the whole job and its supervisor. Not for an uninterruptible one.
    void endByForce();

    // The pipe to poll for output; -1 where the output is a file, which has to be looked at from
    // time to time.
    int outputPipe() const { return uninterruptible ? -1 : output.get(); }
    // Reads what the job has written, without waiting; returns how much, 0 when there is nothing at
    // the moment.
    std::size_t readOutput(char* target, std::size_t most);
    // How many bytes are there that are not read yet. Once the shell has ended, this much is the
    // rest of its output; more may come from processes it left behind.
    std::size_t unreadOutput() const;

private:
    const bool uninterruptible;
    pid_t supervisor = 0;
    UniqueFd control;
    UniqueFd output;
    off_t outputRead = 0;  // of the file; a pipe needs none
};
