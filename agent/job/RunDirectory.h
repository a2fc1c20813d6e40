#pragma once

#include <functional>
#include <list>
#include <string>
#include <utility>

#include "UniqueFd.h"

// The directory run/ under the node path: locks, and records of what must be tidied up should its
// owner die. Whoever owns a lock or a record holds a flock on its file; the kernel gives that up
// when the last holder ends, however it ends, so that a held lock is always somebody's.
//
// Each process makes its own object; several may work on one directory at a time.

// An flock on a file of the run directory.
class RunLock {
public:
    RunLock() = default;
    explicit RunLock(UniqueFd lockedFile) : file(std::move(lockedFile)) {}
    RunLock(RunLock&&) = default;
    RunLock& operator=(RunLock&& other) noexcept {
        release();
        file = std::move(other.file);
        return *this;
    }
    RunLock(const RunLock&) = delete;
    RunLock& operator=(const RunLock&) = delete;
    ~RunLock() = default;

    explicit operator bool() const { return static_cast<bool>(file); }
    int descriptor() const { return file.get(); }
    // Replaces the text in the file, which says to others who holds it. Errors are of no matter.
    void note(const std::string& text) const;
    // Ends the lock for everybody who inherited the descriptor too; mere destruction leaves it to
    // them.
    void release();

private:
    UniqueFd file;
};

class RunDirectory {
public:
    enum class Kind {
        kOrdinary,         // the processes of a dead owner are ended
        kUninterruptible,  // they are not: the job's shell holds the record too
    };

    // What a record says.
    struct Entry {
        Kind kind = Kind::kOrdinary;
        // "NAME=value" in the environment of the owner's job; empty when it has none.
        std::string marker;
        std::list<std::string> files;                          // to be removed
        std::list<std::pair<std::string, std::string>> tools;  // lock name, file to be removed
    };

    // A record this process owns. Destruction leaves the file to the sweeper.
    class Record {
    public:
        Record() = default;
        explicit operator bool() const { return static_cast<bool>(file); }
        int descriptor() const { return file.get(); }
        const std::string& name() const { return fileName; }
        // "NAME=value", unlike that of any other record.
        std::string marker() const;
        // Both throw CException when the record cannot be written: then the thing that it was to
        // announce must not be made.
        void addFile(const std::string& name);
        void addTool(const std::string& lockName, const std::string& name);
        // Removes the record: everything in it has been dealt with.
        void finish();

    private:
        friend class RunDirectory;
        void append(char what, const std::string& text);
        UniqueFd file;
        std::string path;
        std::string fileName;
    };

    // directory ends in "/". Nothing is touched yet.
    explicit RunDirectory(std::string directory);

    // Makes the directory, 0700. Throws CException.
    void create() const;
    const std::string& getPath() const { return path; }

    // Takes the lock without waiting; an empty one when somebody else holds it. Throws CException
    // when the lock file cannot be made.
    RunLock tryLock(const std::string& name) const;
    // What the holder noted; empty when there is nothing.
    std::string noteOf(const std::string& name) const;
    // Takes the lock away from whoever holds it: a new file takes the place of the old one, which
    // is of no use to its holders any more. isAbandoned is asked when nobody else can do the same.
    // Empty when it says no, or somebody is faster.
    RunLock takeOver(const std::string& name, const std::function<bool()>& isAbandoned) const;
    // Whether the lock, which is held, has not been taken over.
    bool isCurrent(const RunLock& lock, const std::string& name) const;

    // Throws CException when it cannot be made.
    Record openRecord(Kind kind) const;

    // Deals with the records whose owner is gone: ends the marked processes of an ordinary job,
    // removes files and plain tools. Returns how many records remain whose owner is gone; 0 means
    // that all is tidy. told gets one line per record dealt with.
    int sweep(const std::function<void(const std::string&)>& told) const;
    // True while a living owner holds a record of that kind.
    bool hasOwned(Kind kind) const;

    static constexpr char kMarkerName[] = "KELNODE_JOB";

private:
    bool sweepRecord(const std::string& name,
                     const std::function<void(const std::string&)>& told) const;
    bool clean(const Entry& entry) const;
    std::list<std::string> recordNames() const;

    std::string path;
};
