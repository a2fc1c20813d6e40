#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "JournalRecord.h"
#include "SqliteDatabase.h"

// Questions to the journal. Any number of readers work beside the shells that write. Every member
// throws CException when the journal cannot be read. Used by one thread.
class JournalReader {
public:
    // Where there is no journal yet, every answer is empty.
    explicit JournalReader(const std::string& fileName);

    // The last commands, the newest first.
    std::vector<JournalSummary> recent(unsigned int count);
    // The newest command with that number.
    std::optional<JournalCommand> withNumber(unsigned int number);
    std::optional<JournalCommand> withId(std::int64_t id);
    // The last command on nodes of that user.
    std::optional<JournalCommand> lastOf(const std::string& who);
    // The results of a command, by name of node. Without outputs they take little memory.
    std::vector<JournalResult> results(std::int64_t commandId, bool withOutput);
    // What one node has done, the newest first.
    struct NodeEntry {
        JournalCommand command;
        JournalResult result;
    };
    std::vector<NodeEntry> historyOf(const std::string& node, unsigned int count);

    // The nodes of a command and of all its retries that have not succeeded yet, by name: each
    // node counts with its newest known attempt. The command may be any of the family.
    std::vector<JournalResult> leftOver(std::int64_t commandId);
    // The first command of the family.
    std::int64_t ancestorOf(std::int64_t commandId);

private:
    std::unique_ptr<SqliteDatabase> database;
};
