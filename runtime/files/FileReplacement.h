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

// A file that arrives from the peer and takes its place whole or not at all. The content goes to a
// temporary file in the directory of the target, which vanishes with this object unless commit()
// succeeded; where the file system allows it the temporary file has no name, so that not even a
// kill leaves it behind; where it has one, the
// next transfer into the directory removes it (on shared file systems after ten minutes). Used by
// either end that receives a file.
//
// Memory is a few pieces, whatever the size. The digest of a large file is calculated by a thread
// of its own. Used by one thread; several replacements of one target at a time are fine: the last
// to commit wins, whole. All failures throw FileError and leave the old file untouched.
class FileReplacement {
public:
    // Throws for a relative path, a missing parent directory, and a target that exists and is
    // neither a regular file nor a symbolic link. A link is replaced, never followed.
    //   announce  told the path of a temporary file just before the file gets that name, for those
    //             who keep a list of what to remove should this process be killed; may throw
    explicit FileReplacement(const std::string& path,
                             std::function<void(const std::string&)> announce = nullptr);
    FileReplacement(const FileReplacement&) = delete;
    FileReplacement& operator=(const FileReplacement&) = delete;
    ~FileReplacement();

    // Creates the temporary file (mode 0600).
    //   expectedBytes  how many are going to come, if that is known; only advice
    void open(std::uint64_t expectedBytes = 0);
    void write(const std::string& bytes);
    // The same, but keeps the memory for a while: what the string holds afterwards is something
    // else, or nothing, to be written over.
    void consume(std::string& bytes);
    std::uint64_t receivedBytes() const { return written; }
    // The digest of what was written; call it once, before commit().
    std::string finish();
    // Makes the content durable with these permission bits and puts it in place.
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
    // The file that was replaced. Giving back the space of a large one takes the system a while,
    // and nobody should wait for that who only waits for the new one.
    UniqueFd oldFile;

    // Belong to the digester while it runs.
    FileDigest digest;
    std::exception_ptr fault;
    PiecePipe arrived;
    SideThread digester;  // uses the three above
};
