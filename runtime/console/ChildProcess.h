#pragma once

#include <cstddef>
#include <string>

// Runs one shell command line ("/bin/sh -c") on this machine and waits for it. The child gets
// default signal dispositions, an empty signal mask and descriptors 0 to 2 only; it stays in the
// caller's process group, so that Ctrl+C reaches it and it may use the terminal.
//
// Of each captured stream a limited part is kept. The rest is read and dropped, so that the child
// does not wait, and a line at the end of the text says how much it was.
//
// The wait ends when the shell ends. A background process that keeps the pipe open does not delay
// the caller.
class ChildProcess {
public:
    enum class Input { kInherit, kNull };

    // So much is kept of a command on a node, too.
    static constexpr std::size_t kMostOutputBytes = 64 * 1024 * 1024;

    struct Request {
        std::string commandLine;
        Input input = Input::kInherit;
        // Where the streams go; null means the caller's own stream. The same string for both merges
        // the streams in the order in which they are written.
        std::string* output = nullptr;
        std::string* errorOutput = nullptr;
        std::size_t mostOutputBytes = kMostOutputBytes;
        // A variable to leave out of the child's environment; empty means none.
        std::string withoutVariable;
    };

    struct Outcome {
        enum class State { kExited, kSignaled, kNotStarted };
        State state = State::kNotStarted;
        int value = 0;       // the exit code, the signal or the errno
        std::string reason;  // why it was not started

        // The exit code as a shell reports it: 128 + n after signal n, -1 when not started.
        int exitCode() const;
    };

    // May be called from several threads at once.
    static Outcome run(const Request& request);
};
