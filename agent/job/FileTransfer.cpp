#include "FileTransfer.h"

#include <memory>
#include <utility>

FileReceiver::FileReceiver(const protocol::Put& request, const RunDirectory& runDirectory)
    : put(request), directory(runDirectory) {
    target = std::make_unique<FileReplacement>(put.path, [this](const std::string& temporary) {
        if (!record) {
            record = directory.openRecord(RunDirectory::Kind::kOrdinary);
        }
        record.addFile(temporary);
    });
    target->open(put.size);
}

FileReceiver::~FileReceiver() {
    target.reset();
    record.finish();
}

void FileReceiver::consume(std::string& bytes) {
    if (bytes.size() > put.size - target->receivedBytes()) {
        throw Damaged("More bytes arrived for \"" + put.path + "\" than were announced.");
    }
    target->consume(bytes);
}

std::string FileReceiver::finish(const std::string& expectedDigest) {
    if (target->receivedBytes() != put.size) {
        throw Damaged("Only " + std::to_string(target->receivedBytes()) + " of " +
                      std::to_string(put.size) + " bytes of \"" + put.path + "\" arrived.");
    }
    const std::string found = target->finish();
    if (found != expectedDigest) {
        throw Damaged("\"" + put.path + "\" was damaged on its way (SHA-256 " +
                      FileDigest::shortHex(found) + " instead of " +
                      FileDigest::shortHex(expectedDigest) + ").");
    }
    target->commit(put.mode);
    return "\"" + put.path + "\" was saved (" + std::to_string(put.size) + " bytes, SHA-256 " +
           FileDigest::shortHex(found) + ").";
}
