#include "LineRenderer.h"

#include <algorithm>
#include <utility>

namespace {

constexpr char kPlain[] = "\x1b[0m";
constexpr char kGrey[] = "\x1b[90m";
constexpr char kEraseToEnd[] = "\x1b[K";
constexpr std::size_t kNoCursor = std::string::npos;

void moveBy(std::string& out, std::size_t count, char direction) {
    if (count > 0) {
        out += "\x1b[" + (count > 1 ? std::to_string(count) : std::string()) + direction;
    }
}

}  // namespace

LineRenderer::LineRenderer(TextCoding textCoding, int screenRows, int screenColumns)
    : coding(textCoding) {
    setSize(rows, screenRows, 24);
    setSize(columns, screenColumns, 80);
}

void LineRenderer::setSize(int& value, int wanted, int otherwise) {
    value = wanted > 0 ? wanted : otherwise;
}

int LineRenderer::widthOf(const Row& cells) {
    int width = 0;
    for (const Cell& cell : cells) {
        width += cell.cells;
    }
    return width;
}

void LineRenderer::breakRow(Layout& layout) {
    layout.rows.emplace_back();
    layout.lastColumn = 0;
}

void LineRenderer::addCell(Layout& layout, Cell cell) const {
    if (cell.cells > columns) {
        cell.bytes = "?";
        cell.cells = 1;
    }
    // The row ends before the cursor would have to wait behind its last column.
    if (layout.lastColumn + cell.cells > columns) {
        breakRow(layout);
    }
    layout.lastColumn += cell.cells;
    layout.rows.back().push_back(std::move(cell));
}

void LineRenderer::addText(Layout& layout, const std::string& text, const std::string& style,
                           std::size_t cursor) const {
    for (std::size_t at = 0; at <= text.size();) {
        if (at == cursor) {
            // A sign of two cells that goes to the next row takes the cursor along.
            const int needed = at < text.size()
                                   ? std::min(textcells::clusterAt(text, at, coding).cells, columns)
                                   : 1;
            if (layout.lastColumn + needed > columns) {
                breakRow(layout);
            }
            layout.cursorRow = layout.rows.size() - 1;
            layout.cursorColumn = layout.lastColumn;
        }
        if (at == text.size()) {
            return;
        }
        textcells::Cluster cluster = textcells::clusterAt(text, at, coding);
        const bool breaks = text[at] == '\n';
        addCell(layout, {std::move(cluster.shown), style, cluster.cells});
        if (breaks) {
            breakRow(layout);
        }
        at += cluster.length;
    }
}

void LineRenderer::addPrompt(Layout& layout, const std::string& prompt) const {
    std::string style;
    std::string plain;
    const auto flush = [&] {
        addText(layout, textcells::cleaned(plain, coding, false), style, kNoCursor);
        plain.clear();
    };
    for (std::size_t at = 0; at < prompt.size();) {
        const std::size_t end = prompt.compare(at, 2, "\x1b[") == 0
                                    ? prompt.find_first_not_of("0123456789;", at + 2)
                                    : std::string::npos;
        if (end == std::string::npos || prompt[end] != 'm') {
            plain += prompt[at++];
            continue;
        }
        flush();
        const std::string sequence = prompt.substr(at, end + 1 - at);
        if (sequence == "\x1b[m" || sequence == kPlain) {
            style.clear();
        } else {
            style += sequence;
        }
        at = end + 1;
    }
    flush();
}

LineRenderer::Layout LineRenderer::layOut(const View& view) const {
    Layout layout;
    layout.rows.emplace_back();
    addPrompt(layout, view.prompt);
    addText(layout, view.text, "", std::min(view.cursor, view.text.size()));
    if (!view.hint.empty()) {
        addText(layout, textcells::cleaned(view.hint, coding, false), kGrey, kNoCursor);
    }
    return layout;
}

std::string LineRenderer::draw(const View& view) {
    Layout layout = layOut(view);
    // Of more rows than the screen has, those around the cursor; they stay while it is among them.
    const auto height = static_cast<std::size_t>(rows);
    if (layout.rows.size() <= height) {
        firstRow = 0;
    } else {
        firstRow = std::min(firstRow, layout.rows.size() - height);
        firstRow = std::min(firstRow, layout.cursorRow);
        if (layout.cursorRow >= firstRow + height) {
            firstRow = layout.cursorRow - height + 1;
        }
    }
    const std::size_t end = std::min(layout.rows.size(), firstRow + height);
    std::string out;
    if (shown.empty()) {
        shown.emplace_back();
    }
    for (std::size_t index = firstRow; index < end; ++index) {
        drawRow(out, index - firstRow, layout.rows[index]);
    }
    for (std::size_t index = end - firstRow; index < shown.size(); ++index) {
        drawRow(out, index, Row());
    }
    goTo(out, layout.cursorRow - firstRow, layout.cursorColumn);
    return out;
}

void LineRenderer::drawRow(std::string& out, std::size_t index, const Row& wanted) {
    const bool fresh = index >= shown.size();
    const Row before = fresh ? Row() : shown[index];
    std::size_t same = 0;
    int from = 0;
    while (same < before.size() && same < wanted.size() && before[same] == wanted[same]) {
        from += wanted[same++].cells;
    }
    if (!fresh && same == before.size() && same == wanted.size()) {
        return;
    }
    goTo(out, index, from);
    std::string style;
    for (std::size_t at = same; at < wanted.size(); ++at) {
        if (wanted[at].style != style) {
            out += style.empty() ? wanted[at].style : kPlain + wanted[at].style;
            style = wanted[at].style;
        }
        out += wanted[at].bytes;
        column += wanted[at].cells;
    }
    if (!style.empty()) {
        out += kPlain;
    }
    // A full row has nothing behind it, and erasing there would take its last sign.
    if (widthOf(before) > column && column < columns) {
        out += kEraseToEnd;
    }
    shown[index] = wanted;
}

// Rows that are not there yet are made by line feeds, so that the screen scrolls where it must.
void LineRenderer::goTo(std::string& out, std::size_t toRow, int toColumn) {
    if (toRow == row && toColumn == column) {
        return;
    }
    if (toRow < row) {
        moveBy(out, row - toRow, 'A');
    } else if (toRow > row) {
        const std::size_t known = std::min(toRow, shown.size() - 1);
        if (known > row) {
            moveBy(out, known - row, 'B');
        }
        for (std::size_t next = std::max(known, row); next < toRow; ++next) {
            out += "\r\n";
            column = 0;
            shown.emplace_back();
        }
    }
    row = toRow;
    if (toColumn == column && column < columns) {
        return;
    }
    // From behind the last column only a carriage return leads to a place that all terminals agree
    // about.
    if (toColumn < column && column < columns && column - toColumn <= toColumn) {
        moveBy(out, static_cast<std::size_t>(column - toColumn), 'D');
    } else if (toColumn > column) {
        moveBy(out, static_cast<std::size_t>(toColumn - column), 'C');
    } else {
        out += '\r';
        moveBy(out, static_cast<std::size_t>(toColumn), 'C');
    }
    column = toColumn;
}

std::string LineRenderer::resize(int screenRows, int screenColumns) {
    std::string out;
    if (!shown.empty()) {
        moveBy(out, row, 'A');
        out += "\r\x1b[J";
    }
    setSize(rows, screenRows, 24);
    setSize(columns, screenColumns, 80);
    forget();
    return out;
}

std::string LineRenderer::finish() {
    std::string out;
    if (!shown.empty()) {
        moveBy(out, shown.size() - 1 - row, 'B');
    }
    out += "\r\n";
    forget();
    return out;
}

void LineRenderer::forget() {
    shown.clear();
    firstRow = 0;
    row = 0;
    column = 0;
}
