#pragma once

// The mode of the terminal on standard input, and the signals that must not leave it changed. The
// state belongs to the process. Only the thread that reads keys may call, except
// continuedDescriptor.
namespace TerminalMode {

// Turns echo and line buffering off and remembers the mode found. Until leave(), a signal that
// would end or stop the process restores that mode first, and SIGCONT sets key mode again. Signals
// that the program handles or ignores are not touched. Returns false when standard input is no
// terminal. Does nothing when key mode is already set.
bool enter();

// Restores the mode found and the signal handlers.
void leave();

// An eventfd that becomes readable each time the process was continued in key mode; its user reads
// it. -1 when there is none.
int continuedDescriptor();

}  // namespace TerminalMode
