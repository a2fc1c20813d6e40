#pragma once

// The mode of the terminal on standard input, and the signals that must not leave it changed. The
// state is the process's one and only; everything but continuedDescriptor belongs to the thread
// that reads keys.
namespace TerminalMode {

// Turns echo and line buffering off and keeps the mode found. Until leave(), a signal that would
// end or stop the process puts that mode back first, and SIGCONT takes the key mode again; signals
// that the program handles or ignores are left alone. Returns false when standard input is no
// terminal. Does nothing when the mode is already taken.
bool enter();

// Puts back the mode found and the signal dispositions.
void leave();

// Becomes readable (an eventfd, to be read by its user) each time the process was continued in key
// mode; -1 when there is none.
int continuedDescriptor();

}  // namespace TerminalMode
