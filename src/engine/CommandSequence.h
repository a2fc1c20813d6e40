#pragma once

#include <string>

#include <semaphore.h>

// The command sequence numbers that all shells of this machine share: a counter in a small text
// file, its read-increment-write guarded by a named semaphore and, since a shell that ends removes
// the semaphore's name under the others, by an advisory lock on the file as well.
// Belongs to one thread. Owns its handle of the semaphore.
class CommandSequence {
public:
    static constexpr char kSemaphoreName[] = "/KELSH_CMD_SEQ_SEMAPHORE";

    // Opens the semaphore, making it where it is absent. Throws
    // boost::interprocess::interprocess_exception with the system's text when that fails.
    explicit CommandSequence(std::string filePath, std::string semaphoreName = kSemaphoreName);
    CommandSequence(const CommandSequence&) = delete;
    CommandSequence& operator=(const CommandSequence&) = delete;
    // Closes the handle and removes the semaphore's name.
    ~CommandSequence();

    // The number in the file; 0 for a file without one. An absent file is made, holding "0".
    // Takes no lock and never fails: a file that cannot be read counts as 0.
    unsigned int readFromFile() const;
    // Makes the number the whole content of the file. Takes no lock. Where the file cannot be
    // opened, one line on standard output says so.
    void writeToFile(unsigned int number) const;

    // Takes the next number. Waits for the other shells as long as it takes; after 5 seconds one
    // line on standard error names what it waits for. Throws interprocess_exception when the
    // semaphore fails.
    unsigned int next();
    // The number taken last by this object; 0 before the first.
    unsigned int current() const { return lastTaken; }

    const std::string& path() const { return filePath; }

private:
    void lockSemaphore();

    std::string filePath;
    std::string semaphoreName;
    sem_t* semaphore;
    unsigned int lastTaken = 0;
};
