#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <string>

#include "FileDigest.h"
#include "FileSource.h"
#include "PiecePipe.h"
#include "SideThread.h"
#include "UniqueFd.h"

// Receives a file and puts it in its place whole, or not at all. The content goes into a temporary
// file in the target's directory. Without a successful commit() that file disappears with this
// object. Where the file system allows it the temporary file has no name, so that even a killed
// process leaves nothing behind. Where it has a name, the next transfer into the directory removes
// what was left (on shared file systems after ten minutes). Both ends use it to receive files.
//
// It needs memory for a few pieces, whatever the size. The digest of a large file is calculated by
// a thread of its own. Used by one thread. Several objects may replace one target at a time: the
// last to commit wins, with its whole content. All failures throw FileError and leave the old file
// as it was.
class FileReplacement {
public:
    // Throws for a relative path, a missing parent directory, and a target that exists and is
    // neither a regular file nor a symbolic link. A link is replaced, never followed. announce is
    // called with the path of a temporary file just before the file gets that name, so that
    // somebody else can remove it should this process be killed. It may throw.
    explicit FileReplacement(const std::string& path,
                             std::function<void(const std::string&)> announce = nullptr);
    FileReplacement(const FileReplacement&) = delete;
    FileReplacement& operator=(const FileReplacement&) = delete;
    ~FileReplacement();

    // Throws if the file system of the target has less room than that.
    void requireRoomFor(std::uint64_t bytes) const;
    // Creates the temporary file (mode 0600). expectedBytes is the expected size, if known; it is
    // only a hint.
    void open(std::uint64_t expectedBytes = 0);
    void write(const std::string& bytes);
    // The same, but may keep the string's memory. Afterwards the string holds other bytes or none,
    // to be written over.
    void consume(std::string& bytes);
    std::uint64_t receivedBytes() const { return written; }
    // The digest of all bytes written. Call it once, before commit().
    std::string finish();
    // Flushes the content to the disk, sets these permission bits, and puts the file in place.
    void commit(std::uint32_t mode);

private:
    [[noreturn]] void fail(const std::string& what, int error) const;
    void openUnnamed();
    void openNamed();
    void digestArrived() noexcept;
    void store(const std::string& bytes);
    void holdOldFile();
    void sweepAbandoned() const;
    void beginWriting();
    void refuseUnfitTarget() const;
    std::string newTemporaryName() const;
    std::string linkUnderTemporaryName();

    std::string path;
    std::function<void(const std::string&)> announce;
    std::string name;           // of the target in its directory
    std::string temporaryName;  // empty while the temporary file has no name
    UniqueFd directory;
    UniqueFd file;
    std::uint64_t written = 0;
    std::uint64_t handedToDisk = 0;
    // The file that was replaced, kept open. Freeing the space of a large file takes the system a
    // while; the caller, who waits for the new file, need not wait for that.
    UniqueFd oldFile;

    // The digester alone uses these while it runs.
    FileDigest digest;
    std::exception_ptr fault;
    PiecePipe arrived;
    SideThread digester;  // uses the three above
};
