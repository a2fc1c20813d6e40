#pragma once

#include <string>
#include <vector>

// A configuration file line by line as the shell's readers see it, with what they accept in silence
// although nobody can have meant it.
class ConfigFileLines {
public:
    struct Line {
        std::string text;  // without its newline
        int number = 0;  // in the file, as an editor counts; a piece of a long line has its line's
    };

    // Reads the file. Returns nothing, or why it cannot be read: "cannot be opened: ...".
    std::string read(const std::string& fileName);

    const std::vector<Line>& getLines() const { return lines; }
    // About each line that is too long, and about the first that ends in a carriage return.
    const std::vector<Line>& getWarnings() const { return warnings; }

private:
    std::vector<Line> lines;  // by the reader's numbers, from 1 on
    std::vector<Line> warnings;
};
