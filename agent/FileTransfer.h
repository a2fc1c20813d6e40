#pragma once

#include <cstdint>
#include <string>

#include "CException.h"
#include "FileDigest.h"
#include "RunDirectory.h"
#include "UniqueFd.h"

// The two directions of a file between the shell and this node, without the network: Session feeds
// and drains them. Only absolute paths and only regular files; the last part of a path is never
// followed when it is a symbolic link. Every failure throws CException with a text for the user
// that names the path; a full SHA-256 is kept over all bytes. Each object belongs to one process.

// A file that arrives. The bytes go to a temporary file in the target's directory, nameless where
// the file system can do that, and take the target's place in one step at the end. Destruction
// before that leaves the target as it was and nothing else.
class FileReceiver {
public:
    // The bytes arrived are not the bytes sent.
    class Damaged : public CException {
    public:
        using CException::CException;
    };

    // mode: permission bits; others are dropped.
    FileReceiver(std::string path, std::uint64_t size, std::uint32_t mode,
                 const RunDirectory& directory);
    FileReceiver(const FileReceiver&) = delete;
    FileReceiver& operator=(const FileReceiver&) = delete;
    ~FileReceiver();

    void write(const std::string& bytes);
    // Checks size and digest, then puts the file in its place, safe on the disk.
    // Returns a sentence for the user.
    std::string finish(const std::string& expectedDigest);

    std::uint64_t bytesWritten() const { return written; }

private:
    void checkTarget() const;
    void checkSpace() const;
    void makeTemporary();
    void nameTemporary();
    void writeBack();
    [[noreturn]] void fail(const std::string& what) const;

    const std::string path;
    const std::uint64_t size;
    const std::uint32_t mode;
    const RunDirectory& directory;
    std::string name;  // the last part of path
    UniqueFd parent;
    UniqueFd file;
    RunDirectory::Record record;
    std::string temporary;  // its name in parent while it has one
    FileDigest digest;
    std::uint64_t written = 0;
    std::uint64_t writtenBack = 0;
};

// A file that is sent. Its size is settled when it is opened; a file that changes meanwhile is
// refused at the end, since what was read then is no state the file ever had.
class FileSender {
public:
    explicit FileSender(std::string path);
    FileSender(const FileSender&) = delete;
    FileSender& operator=(const FileSender&) = delete;

    std::uint64_t size() const { return fileSize; }
    std::uint32_t mode() const { return fileMode; }
    std::uint64_t bytesRead() const { return done; }
    // The next piece, of at most maxBytes; empty after the last.
    std::string read(std::size_t maxBytes);
    // After the last piece: makes sure that the file is still what it was, and returns the digest.
    std::string finish();

private:
    [[noreturn]] void fail(const std::string& what) const;

    const std::string path;
    UniqueFd file;
    std::uint64_t fileSize = 0;
    std::uint32_t fileMode = 0;
    std::int64_t modifiedSeconds = 0;
    std::int64_t modifiedNanos = 0;
    FileDigest digest;
    std::uint64_t done = 0;
};
