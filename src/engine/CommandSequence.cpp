#include "CommandSequence.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>
#include <utility>

#include <boost/interprocess/errors.hpp>
#include <boost/interprocess/exceptions.hpp>

#include "ConfigLineReader.h"
#include "Posix.h"
#include "UniqueFd.h"

namespace {

constexpr time_t kHintAfterSeconds = 5;
constexpr mode_t kFileMode = 0666;       // before the umask
constexpr mode_t kSemaphoreMode = 0777;  // before the umask

[[noreturn]] void throwSystemError(int error) {
    throw boost::interprocess::interprocess_exception(boost::interprocess::error_info(error));
}

bool cutAt(int fd, std::size_t size) {
    return Posix::retried([&] { return ::ftruncate(fd, static_cast<off_t>(size)); }) == 0;
}

void createWithZero(const std::string& path) {
    // Exclusive: a file that is there but cannot be read must not lose its number.
    const UniqueFd file = Posix::open(path, O_RDWR | O_CREAT | O_EXCL, kFileMode);
    if (file) {
        static_cast<void>(Posix::writeAll(file.get(), "0"));
    }
}

// Waits for the lock on the counter file; it ends when the descriptor is closed. Where the file
// cannot be opened, the semaphore has to do.
UniqueFd lockFile(const std::string& path) {
    UniqueFd file = Posix::open(path, O_RDWR | O_CREAT, kFileMode);
    if (!file) {
        file = Posix::open(path, O_RDONLY);
    }
    if (file) {
        static_cast<void>(Posix::retried([&] { return ::flock(file.get(), LOCK_EX); }));
    }
    return file;
}

// Gives the semaphore back even when reading or writing the file throws.
class SemaphoreHold {
public:
    explicit SemaphoreHold(sem_t* taken) : semaphore(taken) {}
    SemaphoreHold(const SemaphoreHold&) = delete;
    SemaphoreHold& operator=(const SemaphoreHold&) = delete;
    ~SemaphoreHold() {
        if (semaphore != nullptr) {
            static_cast<void>(::sem_post(semaphore));
        }
    }
    void release() {
        if (::sem_post(std::exchange(semaphore, nullptr)) != 0) {
            throwSystemError(errno);
        }
    }

private:
    sem_t* semaphore;
};

}  // namespace

CommandSequence::CommandSequence(std::string file, std::string name)
    : filePath(std::move(file)),
      semaphoreName(std::move(name)),
      semaphore(::sem_open(semaphoreName.c_str(), O_CREAT | O_RDWR, kSemaphoreMode, 1)) {
    if (semaphore == SEM_FAILED) {
        throwSystemError(errno);
    }
}

CommandSequence::~CommandSequence() {
    static_cast<void>(::sem_close(semaphore));
    // Under a shell that still runs, too; it keeps its handle. docs/compatibility.md.
    static_cast<void>(::sem_unlink(semaphoreName.c_str()));
}

unsigned int CommandSequence::readFromFile() const {
    const Posix::File file = Posix::openFile(filePath, "re");
    if (!file) {
        createWithZero(filePath);
        return 0;
    }
    ConfigLineReader reader(file.get());
    std::string line;
    while (reader.next(line)) {
        if (!ConfigLineReader::isSkipped(line)) {
            return static_cast<unsigned int>(std::strtol(line.c_str(), nullptr, 10));
        }
    }
    return 0;
}

void CommandSequence::writeToFile(unsigned int number) const {
    // Not truncated at opening: a shell that is killed in here must not leave an empty file, from
    // which the numbers would begin anew.
    const UniqueFd file = Posix::open(filePath, O_RDWR | O_CREAT, kFileMode);
    if (!file) {
        // The text names a call that is not made, and stays; docs/compatibility.md.
        std::puts("ERROR!!! fopen(cmdSeqFilePath.data(), \"wt\") returns NULL....");
        return;
    }
    const std::string text = std::to_string(number);
    if (!Posix::writeAllAt(file.get(), text, 0) || !cutAt(file.get(), text.size())) {
        static_cast<void>(std::fprintf(stderr, "kelsh: cannot write \"%s\": %s\n", filePath.c_str(),
                                       std::strerror(errno)));
    }
}

unsigned int CommandSequence::next() {
    lockSemaphore();
    SemaphoreHold hold(semaphore);
    unsigned int number = 0;
    {
        const UniqueFd lock = lockFile(filePath);
        number = readFromFile();
        writeToFile(number + 1);
    }
    hold.release();
    lastTaken = number;
    return number;
}

void CommandSequence::lockSemaphore() {
    timespec limit{};
    static_cast<void>(::clock_gettime(CLOCK_MONOTONIC, &limit));
    limit.tv_sec += kHintAfterSeconds;
    int outcome =
        Posix::retried([&] { return ::sem_clockwait(semaphore, CLOCK_MONOTONIC, &limit); });
    if (outcome != 0 && errno == ETIMEDOUT) {
        static_cast<void>(std::fprintf(
            stderr,
            "kelsh: still waiting for the semaphore \"%s\" (/dev/shm/sem.%s). Another shell holds "
            "it, or was killed while it did; in that case remove that file and start anew.\n",
            semaphoreName.c_str(), semaphoreName.c_str() + 1));
        outcome = Posix::retried([&] { return ::sem_wait(semaphore); });
    }
    if (outcome != 0) {
        throwSystemError(errno);
    }
}
