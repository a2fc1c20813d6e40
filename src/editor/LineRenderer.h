#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "TextCells.h"

// Draws a line that is being edited, by what differs from what stands on the terminal already.
// Knows no terminal: every operation gives the bytes to write to one, in ANSI cursor sequences.
//
// The drawing begins in the first column of the row where the cursor stands at the first draw(). A
// long line takes several rows, each written for itself; of a line that is longer than the screen
// the rows around the cursor are shown. Output of anybody else in between must be announced:
// finish() before it, and the next draw() begins anew.
class LineRenderer {
public:
    struct View {
        std::string prompt;  // may hold colours (ESC [ ... m); everything else counts as text
        std::string text;
        std::size_t cursor = 0;  // in the text, at a boundary
        std::string hint;        // shown grey behind the text
    };

    // Sizes of 0 count as 24 rows and 80 columns.
    LineRenderer(TextCoding textCoding, int screenRows, int screenColumns);

    std::string draw(const View& view);
    // The terminal has another size now, and has cut off what did not fit. Wipes what was drawn; a
    // terminal that has wrapped the rows anew instead may keep some of it above.
    std::string resize(int screenRows, int screenColumns);
    // Goes to the first column of a fresh row below all that was drawn.
    std::string finish();
    // The screen was cleared and the cursor is in the upper left corner.
    void forget();

    // Of what was drawn last, for tests: the first row of the line that is shown.
    std::size_t firstShownRow() const { return firstRow; }

private:
    struct Cell {
        std::string bytes;
        std::string style;  // the sequence that sets it; empty for none
        int cells = 1;
        bool operator==(const Cell& other) const {
            return bytes == other.bytes && style == other.style && cells == other.cells;
        }
    };
    using Row = std::vector<Cell>;
    struct Layout {
        std::vector<Row> rows;
        int lastColumn = 0;  // cells taken in the last row
        std::size_t cursorRow = 0;
        int cursorColumn = 0;
    };

    static int widthOf(const Row& row);
    void addCell(Layout& layout, Cell cell) const;
    void addText(Layout& layout, const std::string& text, const std::string& style,
                 std::size_t cursor) const;
    void addPrompt(Layout& layout, const std::string& prompt) const;
    static void breakRow(Layout& layout);
    Layout layOut(const View& view) const;

    void drawRow(std::string& out, std::size_t index, const Row& row);
    void goTo(std::string& out, std::size_t row, int column);
    static void setSize(int& value, int wanted, int otherwise);

    TextCoding coding;
    int rows = 24;
    int columns = 80;

    std::vector<Row> shown;  // on the screen, from the first row of the drawing on
    std::size_t firstRow = 0;
    std::size_t row = 0;  // where the cursor is, among them
    int column = 0;
};
