#include "JournalReader.h"

#include <algorithm>
#include <map>
#include <utility>

#include "JournalFile.h"
#include "NodeOutcome.h"

namespace {

constexpr char kCommandColumns[] =
    "SELECT id,number,who,host,line,started,ended,timeout_ms,retry_of FROM commands ";

JournalCommand commandOf(const SqliteStatement& row, int first = 0) {
    JournalCommand command;
    command.id = row.number(first);
    command.number = static_cast<unsigned int>(row.number(first + 1));
    command.who = row.text(first + 2);
    command.host = row.text(first + 3);
    command.line = row.text(first + 4);
    command.started = row.text(first + 5);
    command.ended = row.text(first + 6);
    command.timeOutMs = static_cast<std::uint32_t>(row.number(first + 7));
    if (!row.isNull(first + 8)) {
        command.retryOf = row.number(first + 8);
    }
    return command;
}

JournalResult resultOf(const SqliteStatement& row, int first) {
    JournalResult result;
    result.node = row.text(first);
    result.address = row.text(first + 1);
    result.mac = row.text(first + 2);
    result.cause = row.text(first + 3);
    result.status = static_cast<int>(row.number(first + 4));
    if (!row.isNull(first + 5)) {
        result.exitCode = static_cast<int>(row.number(first + 5));
    }
    result.ms = static_cast<long>(row.number(first + 6));
    result.truncated = row.number(first + 7) != 0;
    if (!row.isNull(first + 8)) {
        result.output = row.text(first + 8);
    }
    return result;
}

std::size_t rankOf(const std::string& cause) {
    const std::optional<Cause> known = causeNamed(cause);
    return known ? static_cast<std::size_t>(*known) : std::size(kAllCauses);
}

}  // namespace

JournalReader::JournalReader(const std::string& fileName)
    : database(JournalFile::openForReading(fileName)) {}

std::vector<JournalSummary> JournalReader::recent(unsigned int count) {
    std::vector<JournalSummary> summaries;
    if (!database) {
        return summaries;
    }
    SqliteStatement rows =
        database->prepare(std::string(kCommandColumns) + "ORDER BY id DESC LIMIT ?");
    rows.bind(0, static_cast<std::int64_t>(count));
    while (rows.step()) {
        summaries.push_back({commandOf(rows), {}});
    }
    SqliteStatement counts =
        database->prepare("SELECT cause,count(*) FROM results WHERE command_id=? GROUP BY cause");
    for (JournalSummary& summary : summaries) {
        counts.bind(0, summary.command.id);
        while (counts.step()) {
            summary.counts.emplace_back(counts.text(0), counts.number(1));
        }
        counts.reset();
        std::sort(summary.counts.begin(), summary.counts.end(),
                  [](const auto& left, const auto& right) {
                      return rankOf(left.first) < rankOf(right.first);
                  });
    }
    return summaries;
}

std::optional<JournalCommand> JournalReader::withNumber(unsigned int number) {
    if (!database) {
        return std::nullopt;
    }
    SqliteStatement row =
        database->prepare(std::string(kCommandColumns) + "WHERE number=? ORDER BY id DESC LIMIT 1");
    row.bind(0, static_cast<std::int64_t>(number));
    return row.step() ? std::optional(commandOf(row)) : std::nullopt;
}

std::optional<JournalCommand> JournalReader::withId(std::int64_t id) {
    if (!database) {
        return std::nullopt;
    }
    SqliteStatement row = database->prepare(std::string(kCommandColumns) + "WHERE id=?");
    row.bind(0, id);
    return row.step() ? std::optional(commandOf(row)) : std::nullopt;
}

std::optional<JournalCommand> JournalReader::lastOf(const std::string& who) {
    if (!database) {
        return std::nullopt;
    }
    // The newest by far are the ones looked at: no index is worth its cost for every command.
    SqliteStatement row =
        database->prepare(std::string(kCommandColumns) + "WHERE who=? ORDER BY id DESC LIMIT 1");
    row.bind(0, who);
    return row.step() ? std::optional(commandOf(row)) : std::nullopt;
}

std::vector<JournalResult> JournalReader::results(std::int64_t commandId, bool withOutput) {
    std::vector<JournalResult> found;
    if (!database) {
        return found;
    }
    SqliteStatement rows = database->prepare(
        withOutput
            ? "SELECT node,address,mac,cause,status,exit_code,ms,truncated,output FROM results"
              " WHERE command_id=? ORDER BY node"
            : "SELECT node,address,mac,cause,status,exit_code,ms,truncated,NULL FROM results"
              " WHERE command_id=? ORDER BY node");
    rows.bind(0, commandId);
    while (rows.step()) {
        found.push_back(resultOf(rows, 0));
    }
    return found;
}

std::vector<JournalReader::NodeEntry> JournalReader::historyOf(const std::string& node,
                                                               unsigned int count) {
    std::vector<NodeEntry> entries;
    if (!database) {
        return entries;
    }
    SqliteStatement rows = database->prepare(
        "SELECT c.id,c.number,c.who,c.host,c.line,c.started,c.ended,c.timeout_ms,c.retry_of,"
        "r.node,r.address,r.mac,r.cause,r.status,r.exit_code,r.ms,r.truncated,NULL"
        " FROM results r JOIN commands c ON c.id=r.command_id"
        " WHERE r.node=? ORDER BY r.command_id DESC LIMIT ?");
    rows.bind(0, node).bind(1, static_cast<std::int64_t>(count));
    while (rows.step()) {
        entries.push_back({commandOf(rows), resultOf(rows, 9)});
    }
    return entries;
}

std::int64_t JournalReader::ancestorOf(std::int64_t commandId) {
    std::int64_t id = commandId;
    while (const std::optional<JournalCommand> command = withId(id)) {
        // A retry is always younger than what it repeats, so this ends.
        if (!command->retryOf || *command->retryOf >= id) {
            break;
        }
        id = *command->retryOf;
    }
    return id;
}

std::vector<JournalResult> JournalReader::leftOver(std::int64_t commandId) {
    std::vector<JournalResult> left;
    if (!database) {
        return left;
    }
    SqliteStatement rows = database->prepare(
        "WITH RECURSIVE family(id) AS (SELECT ? UNION SELECT c.id FROM commands c JOIN family f"
        " ON c.retry_of=f.id) SELECT node,address,mac,cause,status,exit_code,ms,truncated,NULL"
        " FROM results WHERE command_id IN (SELECT id FROM family) ORDER BY command_id");
    rows.bind(0, ancestorOf(commandId));
    std::map<std::string, JournalResult> newest;
    while (rows.step()) {
        JournalResult result = resultOf(rows, 0);
        newest[result.node] = std::move(result);
    }
    for (auto& [node, result] : newest) {
        if (result.cause != causeName(Cause::kOk)) {
            left.push_back(std::move(result));
        }
    }
    return left;
}
