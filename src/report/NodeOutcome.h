#pragma once

#include <optional>
#include <string>

// What became of one command on one node, in the words that people and scripts are given. The order
// is the order of the digest.
enum class Cause {
    kOk,
    kFailed,        // it ran, or was begun, and did not succeed
    kTimedOut,      // the job, or the agent behind a finished handshake, was silent for too long
    kUnreachable,   // no connection, or no finished handshake, within the time
    kWrongMachine,  // another machine than the configured one answers there
    kRefused,       // the agent would not do it
    kNotStarted,    // nothing was sent to the node
    kCancelled,     // ended because the user asked for it
    kRunning,       // must not be cut short, still runs, was not waited for
};

constexpr Cause kAllCauses[] = {Cause::kOk,          Cause::kFailed,       Cause::kTimedOut,
                                Cause::kUnreachable, Cause::kWrongMachine, Cause::kRefused,
                                Cause::kNotStarted,  Cause::kCancelled,    Cause::kRunning};

// "timed_out": for JSON, files and in the names of sets of nodes.
const char* causeName(Cause cause);
// "timed out": for a sentence.
std::string causeWords(Cause cause);
// The cause of that name; none for any other text.
std::optional<Cause> causeNamed(const std::string& name);

// The outcome of one command on one node: a plain value.
struct NodeOutcome {
    std::string node;     // "local" for the master itself
    std::string address;  // empty for the master itself
    std::string mac;      // as configured; empty for the master itself
    Cause cause = Cause::kNotStarted;
    int status = 0;               // the run status, as result blocks show it
    std::optional<int> exitCode;  // none for what never ran
    long ms = 0;
    // What a result block shows below its first line: the output, and for anything but a success
    // the words in front of it.
    std::string text;
    bool truncated = false;  // more was written than is kept
};
