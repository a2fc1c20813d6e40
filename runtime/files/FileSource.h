#pragma once

#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <sys/stat.h>

#include "CException.h"
#include "PiecePipe.h"
#include "SharedDigest.h"
#include "SideThread.h"
#include "UniqueFd.h"

// A file on this machine cannot be read or written; the text names it and says why.
class FileError : public CException {
public:
    using CException::CException;
};

// A regular file on its way to the peer: read in pieces as DATA frames, with the digest of all of
// it, which is made once for all that read the same file at a time. Used by either end that sends a
// file. Memory is a few pieces, whatever the size. A large file is read and digested a little ahead
// by a thread of its own, so that reading and sending need not wait for each other. Used by one
// thread.
class FileSource {
public:
    // Opens the file. Throws FileError for a relative path, for anything but a regular file (a
    // symbolic link to one is followed), and where it cannot be opened.
    explicit FileSource(const std::string& path);
    // The same for a file that is open for reading already; path names it in messages.
    FileSource(const std::string& path, UniqueFd opened);
    FileSource(const FileSource&) = delete;
    FileSource& operator=(const FileSource&) = delete;
    ~FileSource();

    std::uint64_t size() const { return total; }
    // Permission bits only.
    std::uint32_t mode() const { return permissions; }
    // Of the frames that nextFrame has given out.
    std::uint64_t sentBytes() const { return given; }

    // The next DATA frame, header included; false at the end of the file. Throws FileError when the
    // file cannot be read or is not the same any more: what was announced must be what is sent.
    // What the string held is lost, its memory is used again.
    bool nextFrame(std::string& frame);
    // The digest; to be called once, after nextFrame returned false.
    std::string finish() { return digest->finish(); }

private:
    void examine();
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
    // Belong to the reader while it runs.
    std::uint64_t done = 0;
    std::shared_ptr<SharedDigest> digest;
    std::exception_ptr fault;

    PiecePipe ahead;
    bool started = false;
    SideThread reader;  // uses all of the above
};
