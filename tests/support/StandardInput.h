#pragma once

#include <string>
#include <unistd.h>

#include "UniqueFd.h"

// Puts something else in the place of standard input for as long as it lives.
class StandardInput {
public:
    // A pipe that holds the text and then ends. The text must fit a pipe (64 KiB).
    static StandardInput holding(const std::string& text);
    static StandardInput file(const std::string& name);

    // The descriptor stays the caller's.
    explicit StandardInput(int descriptor);
    StandardInput(const StandardInput&) = delete;
    StandardInput& operator=(const StandardInput&) = delete;
    ~StandardInput();

private:
    UniqueFd saved;
};
