#pragma once

#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <sys/stat.h>

#include "CException.h"
#include "PiecePipe.h"
#include "SharedDigests.h"
#include "SideThread.h"
#include "UniqueFd.h"

// A file on this machine cannot be read or written. The text names the file and the reason.
class FileError : public CException {
public:
    using CException::CException;
};

// Reads a regular file in pieces, as DATA frames, and calculates its digest. Threads that read the
// same file at a time can share the digest. Both ends use it to send files. It needs memory for a
// few pieces, whatever the size. A thread of its own reads and digests a large file a little ahead,
// so that reading and sending do not wait for each other. Used by one thread.
class FileSource {
public:
    // Opens the file. Throws FileError for a relative path, for anything but a regular file (a
    // symbolic link to one is followed), and when the file cannot be opened.
    //   shared  the digests that are calculated now; null to calculate one for this object alone
    explicit FileSource(const std::string& path, SharedDigests* shared = nullptr);
    // The same for a file that is open for reading already. Messages call it path.
    FileSource(const std::string& path, UniqueFd opened);
    FileSource(const FileSource&) = delete;
    FileSource& operator=(const FileSource&) = delete;
    ~FileSource();

    std::uint64_t size() const { return total; }
    // Permission bits only.
    std::uint32_t mode() const { return permissions; }
    // The content bytes of the frames returned so far.
    std::uint64_t sentBytes() const { return given; }

    // Replaces the string with the next DATA frame, header included, and uses its memory again;
    // false at the end of the file. Throws FileError when the file cannot be read or has changed:
    // what is sent must be what was announced.
    bool nextFrame(std::string& frame);
    // The digest. Call it once, after nextFrame() returned false.
    std::string finish() { return digest->finish(); }

private:
    void examine(SharedDigests* shared);
    void startReadingAhead();
    void readAhead() noexcept;
    bool readFrame(std::string& frame);
    bool takeFrame(std::string& frame);
    [[noreturn]] void changed(const char* how) const;
    void checkUnchanged();

    std::string path;
    UniqueFd file;
    struct stat opened {};
    std::uint64_t total = 0;
    std::uint64_t given = 0;
    std::uint32_t permissions = 0;
    // The reader alone uses these while it runs.
    std::uint64_t done = 0;
    std::shared_ptr<SharedDigest> digest;
    std::exception_ptr fault;

    PiecePipe ahead;
    bool started = false;
    SideThread reader;  // uses all of the above
};
