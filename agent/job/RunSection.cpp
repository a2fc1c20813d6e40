#include "RunSection.h"

#include <cstdlib>
#include <ctime>

#include "FirmwareLock.h"

namespace {

using Clock = std::chrono::steady_clock;

// A new holder writes its note a moment after it has the lock: until then the note is that of one
// that has died. What is older than this is the holder's own.
constexpr std::chrono::milliseconds kNoteTime(100);

// Milliseconds since the start of the machine: processes compare it with each other.
long long nowMs() {
    timespec now{};
    ::clock_gettime(CLOCK_BOOTTIME, &now);
    return now.tv_sec * 1000LL + now.tv_nsec / 1000000;
}

}  // namespace

RunSection::RunSection(const RunDirectory& runDirectory, std::chrono::milliseconds longest)
    : directory(runDirectory), most(longest) {}

bool RunSection::isBusy(const std::string& note) const {
    const long long since = std::strtoll(note.c_str(), nullptr, 10);
    return since == 0 || nowMs() - since < most.count();
}

// Seen twice, see kNoteTime.
bool RunSection::isOverdue() {
    const std::string note = directory.noteOf(kName);
    if (isBusy(note)) {
        overdueNote.clear();
        return false;
    }
    if (note != overdueNote) {
        overdueNote = note;
        overdueSince = Clock::now();
    }
    return Clock::now() - overdueSince >= kNoteTime;
}

bool RunSection::tryEnter(const std::string& owner) {
    if (isLost()) {
        leave();
    }
    if (!lock) {
        lock = directory.tryLock(kName);
        if (!lock && isOverdue()) {
            lock = directory.takeOver(kName, [this] { return !isBusy(directory.noteOf(kName)); });
        }
        if (lock) {
            lock.note(std::to_string(nowMs()) + " " + owner);
        }
    }
    // Looked at last: the job may have outlived the conversation that had the section.
    if (lock && FirmwareLock::isTaken(directory)) {
        leave();
    }
    return isHeld();
}

std::string RunSection::holder() const {
    if (FirmwareLock::isTaken(directory)) {
        return "an uninterruptible job, " + FirmwareLock::holder(directory);
    }
    const std::string note = directory.noteOf(kName);
    const std::string::size_type blank = note.find(' ');
    return blank == std::string::npos ? "another conversation" : note.substr(blank + 1);
}

bool RunSection::isLost() const {
    return lock && !directory.isCurrent(lock, kName);
}

void RunSection::leave() {
    lock.release();
}
