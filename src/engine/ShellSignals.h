#pragma once

// Tells the user that Ctrl+C does not end the shell. Async-signal-safe.
void signalHandler(int sig);

namespace shellsignals {

// Has signalHandler called for SIGINT, without restarting system calls, and has the signals ignored
// that would take the shell along with a reader or a file that is full. Process-wide.
void install();

}  // namespace shellsignals
