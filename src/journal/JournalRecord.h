#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// The rows of the journal as plain values. Times are UTC, "2026-11-22T08:45:00.123Z".

struct JournalCommand {
    std::int64_t id = 0;  // the journal's own key; 0 before it is written
    unsigned int number = 0;
    std::string who;   // the user who ran the shell
    std::string host;  // the master
    std::string line;  // with secrets masked
    std::string started;
    std::string ended;  // empty: the shell has not told
    std::uint32_t timeOutMs = 0;
    std::optional<std::int64_t> retryOf;  // the id of the command that it repeats
};

// "not_known" until a result is written; else a name of Cause.
constexpr char kCauseNotKnown[] = "not_known";

struct JournalResult {
    std::string node;
    std::string address;
    std::string mac;
    std::string cause = kCauseNotKnown;
    int status = 0;
    std::optional<int> exitCode;
    long ms = 0;
    std::optional<std::string> output;  // none: not kept
    bool truncated = false;             // more was written than is kept
};

// A command and how many of its nodes have each cause, in the order of Cause; causes without nodes
// are left out.
struct JournalSummary {
    JournalCommand command;
    std::vector<std::pair<std::string, std::size_t>> counts;
};
