#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "CException.h"

// What the audit says about one request, at its start and at its end.
struct AuditEntry {
    std::string certificate;   // common name
    std::string address;       // of the master
    std::string user;          // who runs the shell there
    std::uint32_t number = 0;  // of the shell's command, 0 for none
    std::string request;       // "EXEC"
    std::string what;          // path or command line, secrets masked
    std::string hmac;          // of the whole command line where something is masked, else empty
    std::string id;            // the same in all lines of a request
};

// The record of every request to this node, a file of JSON lines chained by SHA-256: a line holds
// the hash of the line before it and, at its end, its own, which covers all of itself. A line
// changed, removed, added or moved breaks the chain at that place. Where the file ends is kept
// beside it, in <file>.head (number and hash of the last line), so that a cut-off end shows too.
//
// Who may write both files can write a whole new chain; against root of the node itself the lines
// must be copied away. Sessions append at the same time from many processes: each append takes a
// lock on the file. Text is escaped to printable ASCII, a byte that is none as \u00XX.
class AuditLog {
public:
    // An empty name: no audit, and append does nothing. The file is opened anew for each line.
    // lockLimit: how long to wait for another process that appends.
    explicit AuditLog(std::string fileName,
                      std::chrono::milliseconds lockLimit = std::chrono::seconds(5))
        : file(std::move(fileName)), patience(lockLimit) {}

    bool isOn() const { return !file.empty(); }

    // Adds a line and waits until it is on the disk.
    //   event    "start", "end" or "refused"
    //   outcome  empty at the start
    //   millis   since the start
    // Throws CException when the line cannot be written; then the file is as it was.
    void append(const AuditEntry& entry, const std::string& event, const std::string& outcome,
                long long millis) const;
    // The lines of the start and the end of a request that does nothing but tell, with one wait for
    // both; to be called before its answer is sent. Throws like append.
    void appendWhole(const AuditEntry& entry, const std::string& outcome, long long millis) const;
    // As append, for the end of what has happened anyway: what fails is returned as text.
    std::string tryAppend(const AuditEntry& entry, const std::string& event,
                          const std::string& outcome, long long millis) const noexcept;

    // Where the number and hash of the last line stand.
    static std::string headFileOf(const std::string& fileName) { return fileName + ".head"; }

    // Throws CException when the files cannot be opened for writing.
    void check() const;

    struct Finding {
        long line = 0;     // the first bad line; 0 when all is well, or where no line is to blame
        std::string text;  // empty: nothing is wrong
        long lines = 0;    // good ones
    };
    // Checks a whole audit: its lines and the text of its head file.
    static Finding verify(const std::string& lines, const std::string& head);
    // Reads both files. Throws CException where one cannot be read.
    static Finding verifyFile(const std::string& fileName);

    // A text as it stands between quotes in JSON. Above maxBytes the rest is left out.
    static std::string escape(const std::string& text, std::string::size_type maxBytes);

private:
    struct Event {
        const char* name;
        std::string outcome;
        long long millis;
    };
    void write(const AuditEntry& entry, const std::vector<Event>& events) const;

    std::string file;
    std::chrono::milliseconds patience;
};
