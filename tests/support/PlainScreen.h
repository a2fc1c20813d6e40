#pragma once

#include <string>
#include <vector>

// A terminal as simple as can be: cells, a cursor, the pending wrap of the last column. It knows
// just what the editor may write and refuses anything else.
class PlainScreen {
public:
    PlainScreen(int rowCount, int columnCount);
    void take(const std::string& bytes);

    int row() const { return y; }
    int column() const { return x; }
    // All rows as one text, without the blanks at its end.
    std::string text() const;
    // One row, without the blanks at its end.
    std::string line(int index) const;

private:
    std::size_t width() const { return static_cast<std::size_t>(columns); }
    void step(char direction);
    void put(char c);

    int columns;
    std::vector<std::string> cells;
    int x = 0;
    int y = 0;
    bool pendingWrap = false;
};
