#include "FirmwareLock.h"

#include <cstdio>
#include <unistd.h>
#include <vector>

#include "ProcessTree.h"
#include "Text.h"

namespace {

// The note: what is said to people, then a line for each process that stands for the job.
constexpr char kSupervisor[] = "supervisor ";
constexpr char kShell[] = "shell ";

std::string processLine(const char* role, pid_t pid) {
    processtree::ProcessInfo info;
    if (!processtree::readProcess(pid, info)) {
        return "";
    }
    return std::string("\n") + role + std::to_string(info.pid) + " " +
           std::to_string(info.startTime);
}

bool isAlive(const std::string& processes) {
    long pid = 0;
    unsigned long long startTime = 0;
    processtree::ProcessInfo info;
    // NOLINTNEXTLINE(cert-err34-c): the line was written by processLine, or counts as nobody
    return std::sscanf(processes.c_str(), "%ld %llu", &pid, &startTime) == 2 &&
           processtree::readProcess(static_cast<pid_t>(pid), info) && info.startTime == startTime &&
           !info.isZombie();
}

// What stands behind the word in the note; empty without it.
std::string after(const std::string& note, const char* word) {
    const std::string::size_type at = note.find(std::string("\n") + word);
    return at == std::string::npos ? "" : note.substr(at + 1 + std::string(word).size());
}

std::string named(const std::vector<processtree::ProcessInfo>& processes) {
    std::string names;
    for (const processtree::ProcessInfo& process : processes) {
        names += (names.empty() ? "" : ", ") + std::to_string(process.pid) + " (" +
                 Text::printable(process.name, 64) + ")";
    }
    return names;
}

}  // namespace

bool FirmwareLock::isAbandoned(const RunDirectory& directory) {
    const std::string note = directory.noteOf(kName);
    // Without a shell the job has not begun, and only its supervisor can hold the lock.
    return !after(note, kShell).empty() && !isAlive(after(note, kSupervisor)) &&
           !isAlive(after(note, kShell));
}

bool FirmwareLock::tryTake(const std::string& what, const EventLog& log) {
    lock = directory.tryLock(kName);
    if (!lock) {
        const std::string held = holder(directory);
        const std::string who = named(processtree::havingOpen(directory.getPath() + kName));
        lock = directory.takeOver(kName, [this] { return isAbandoned(directory); });
        if (!lock) {
            return false;
        }
        log.warning(
            "the lock of uninterruptible jobs is taken from the background of one that has "
            "ended, " +
            held + ": held by " + (who.empty() ? "nobody any more" : who));
    }
    note = what + processLine(kSupervisor, ::getpid());
    lock.note(note);
    return true;
}

void FirmwareLock::noteShell(pid_t shell) const {
    lock.note(note + processLine(kShell, shell));
}

bool FirmwareLock::isTaken(const RunDirectory& directory) {
    const std::string note = directory.noteOf(kName);
    return isAlive(after(note, kSupervisor)) || isAlive(after(note, kShell));
}

std::string FirmwareLock::holder(const RunDirectory& directory) {
    const std::string note = directory.noteOf(kName);
    return note.substr(0, note.find('\n'));
}
