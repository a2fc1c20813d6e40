#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

// Finding and ending whole trees of processes through /proc. A process id alone is never trusted:
// it may be given to somebody else between the look and the signal, so each signal goes through a
// pidfd whose process is first checked to be the one that was found.
namespace processtree {

struct ProcessInfo {
    pid_t pid = 0;
    pid_t parent = 0;
    pid_t group = 0;
    pid_t session = 0;
    unsigned long long startTime = 0;  // clock ticks after boot; with pid it names one process
    char state = '?';
    long threads = 1;
    std::string name;  // of the program, as the kernel cuts it

    // Dead, all of it: where only the first thread has ended the process is shown as a zombie too,
    // while the others run on.
    bool isZombie() const { return (state == 'Z' || state == 'X') && threads <= 1; }
};

// False when there is no such process.
bool readProcess(pid_t pid, ProcessInfo& info);
// Every process at this moment.
std::vector<ProcessInfo> listProcesses();
// All descendants of root, zombies included, root left out. The caller is expected to be their
// subreaper (or the subreaper of root), so that none escapes by losing its parent.
std::vector<ProcessInfo> descendantsOf(pid_t root);
// The processes whose environment at exec held exactly this entry ("NAME=value"), zombies left out.
std::vector<ProcessInfo> carrying(const std::string& entry);

// The processes that have this very file open.
std::vector<ProcessInfo> havingOpen(const std::string& path);

// Sends the signal if the process still is the one described.
void signalProcess(const ProcessInfo& process, int signal);

// Stops everything that find returns until it finds nothing it has not stopped already, so that
// nothing can fork any more, and then kills it all. Call again until nothing is left.
// maxRounds bounds the work of one call.
void killAll(const std::function<std::vector<ProcessInfo>()>& find, int maxRounds = 50);

// Ends all descendants of the calling process, which must be a child subreaper: SIGTERM (and
// SIGCONT, for the stopped), then after the grace SIGKILL until none is left, and reaps them.
// groupLeader, when not 0, is a child of the caller, not reaped yet, that leads a process group:
// the group is killed in one stroke, which no fork storm inside it outruns. So are the groups that
// the descendants made, where the caller's session holds nobody else. Killing does not wait for its
// turn on a busy machine: the caller has the highest priority for as long as it lasts.
// Returns false when something was still there at the limit, as a process in uninterruptible sleep
// is.
bool endOwnDescendants(pid_t groupLeader, std::chrono::milliseconds grace,
                       std::chrono::milliseconds limit);

}  // namespace processtree
