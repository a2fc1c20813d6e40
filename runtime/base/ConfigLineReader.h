#pragma once

#include <cstdio>
#include <string>

// The line discipline that all configuration files share: pieces of at most 511 bytes, as fgets
// with a 512-byte buffer gives them, each piece counted as a line; one trailing newline removed.
// Does not own the stream. A NUL byte ends the text of its line, as it would for any C reader.
class ConfigLineReader {
public:
    static constexpr int kBufferBytes = 512;

    explicit ConfigLineReader(FILE* stream);

    // Reads the next piece; false at the end of the file or on a read error. EINTR is retried.
    bool next(std::string& line);
    // Number of the piece last read, counted from 1.
    int lineNumber() const { return number; }
    // True when the piece last read ended in a newline.
    bool hadNewline() const { return newline; }

    // A comment ("#" first) or an empty line.
    static bool isSkipped(const std::string& line);
    // Splits at the first "="; false when there is none. Nothing is trimmed.
    static bool splitSetting(const std::string& line, std::string& key, std::string& value);

private:
    FILE* stream;
    int number = 0;
    bool newline = false;
};
