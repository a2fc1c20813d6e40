#pragma once

#include <memory>
#include <string>
#include <vector>

#include <vterm.h>

// What a terminal shows of the bytes it is sent: libvterm without a program behind it.
class LineScreen {
public:
    // utf8: whether the terminal takes the bytes for UTF-8.
    LineScreen(int screenRows, int screenColumns, bool utf8 = true);

    void take(const std::string& bytes);
    // Cuts off what does not fit, on the right and, so that the cursor stays, above.
    void resize(int screenRows, int screenColumns);

    // The signs of a row as UTF-8, without the blanks at its end.
    std::string row(int index) const;
    // All rows, without the empty ones at the bottom.
    std::vector<std::string> allRows() const;
    int cursorRow() const;
    int cursorColumn() const;

private:
    std::string row(int index, int cells) const;

    int rows;
    int columns;
    bool isUtf8;
    std::unique_ptr<VTerm, void (*)(VTerm*)> emulator;
};
