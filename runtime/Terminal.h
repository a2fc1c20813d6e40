#pragma once

#include <string>

// Standard input as a terminal: single keys, the cursor position, and the terminal's mode.
// Belongs to the main thread. The terminal is given back as it was found when the object is
// released or destroyed, and on every way out of the process.
class Terminal {
public:
    // The one terminal of the process.
    static Terminal& standard();

    // One byte, without echo and without waiting for Enter; -1 at the end of input only.
    int readKey();
    // Counted from 1; 0, 0 when the terminal does not answer in time.
    void cursorPosition(unsigned int& row, unsigned int& column);
};
