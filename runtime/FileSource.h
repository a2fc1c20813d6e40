#pragma once

#include <cstdint>
#include <string>
#include <sys/stat.h>

#include "CException.h"
#include "FileDigest.h"
#include "UniqueFd.h"

// A file on this machine cannot be read or written; the text names it and says why.
class FileError : public CException {
public:
    using CException::CException;
};

// A regular file on its way to the peer: read in pieces as DATA frames, with the digest of all of
// it. Used by either end that sends a file. Memory is one piece, whatever the size.
class FileSource {
public:
    // Opens the file. Throws FileError for a relative path, for anything but a regular file (a
    // symbolic link to one is followed), and where it cannot be opened.
    explicit FileSource(const std::string& path);
    // The same for a file that is open for reading already; path names it in messages.
    FileSource(const std::string& path, UniqueFd opened);

    std::uint64_t size() const { return total; }
    // Permission bits only.
    std::uint32_t mode() const { return permissions; }
    std::uint64_t sentBytes() const { return done; }

    // The next DATA frame, header included; false at the end of the file. Throws FileError when the
    // file cannot be read or is not the same any more: what was announced must be what is sent.
    bool nextFrame(std::string& frame);
    // The digest; to be called once, after nextFrame returned false.
    std::string finish() { return digest.finish(); }

private:
    void examine();
    [[noreturn]] void changed(const char* how) const;
    void checkUnchanged();

    std::string path;
    UniqueFd file;
    struct stat opened {};
    std::uint64_t total = 0;
    std::uint64_t done = 0;
    std::uint32_t permissions = 0;
    FileDigest digest;
};
