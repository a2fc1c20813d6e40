#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "FileReplacement.h"
#include "Protocol.h"
#include "RunDirectory.h"

// A file that arrives for this node: FileReplacement, and what the agent adds to it. The size and
// digest announced are checked, and where the content needs a temporary name, a record in the run
// directory sees to it that the name is removed even if this process is killed.
// All failures throw FileError and leave the old file as it was.
class FileReceiver {
public:
    // The bytes that arrived are not those that were sent.
    class Damaged : public FileError {
    public:
        using FileError::FileError;
    };

    // Both arguments outlive this object.
    FileReceiver(const protocol::Put& request, const RunDirectory& runDirectory);
    FileReceiver(const FileReceiver&) = delete;
    FileReceiver& operator=(const FileReceiver&) = delete;
    ~FileReceiver();

    // Takes the memory too and leaves some to be filled again.
    void consume(std::string& bytes);
    // Puts the file in its place, safe on the disk, and returns a sentence for the user.
    std::string finish(const std::string& expectedDigest);

    std::uint64_t receivedBytes() const { return target->receivedBytes(); }

private:
    const protocol::Put& put;
    const RunDirectory& directory;
    RunDirectory::Record record;
    // Gone before the record is finished: its end removes the temporary file.
    std::unique_ptr<FileReplacement> target;
};
