#include "LineScreen.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace {

std::string encoded(std::uint32_t point) {
    std::string text;
    if (point < 0x80) {
        return std::string(1, static_cast<char>(point));
    }
    int further = point < 0x800 ? 1 : point < 0x10000 ? 2 : 3;
    const unsigned int lead = further == 1 ? 0xc0 : further == 2 ? 0xe0 : 0xf0;
    text += static_cast<char>(lead | (point >> (6 * further)));
    while (further-- > 0) {
        text += static_cast<char>(0x80 | ((point >> (6 * further)) & 0x3f));
    }
    return text;
}

}  // namespace

LineScreen::LineScreen(int screenRows, int screenColumns, bool utf8)
    : rows(screenRows),
      columns(screenColumns),
      isUtf8(utf8),
      emulator(vterm_new(screenRows, screenColumns), &vterm_free) {
    vterm_set_utf8(emulator.get(), isUtf8 ? 1 : 0);
    vterm_screen_reset(vterm_obtain_screen(emulator.get()), 1);
}

void LineScreen::take(const std::string& bytes) {
    vterm_input_write(emulator.get(), bytes.data(), bytes.size());
    vterm_screen_flush_damage(vterm_obtain_screen(emulator.get()));
}

void LineScreen::resize(int screenRows, int screenColumns) {
    // vterm_set_size of libvterm 0.1 breaks the state of the line that the cursor is in.
    LineScreen next(screenRows, screenColumns, isUtf8);
    const int lost = std::max(0, cursorRow() - (screenRows - 1));
    for (int index = lost; index < rows && index - lost < screenRows; ++index) {
        next.take("\x1b[" + std::to_string(index - lost + 1) + "H" + row(index, screenColumns));
    }
    next.take("\x1b[" + std::to_string(cursorRow() - lost + 1) + ";" +
              std::to_string(std::min(cursorColumn(), screenColumns - 1) + 1) + "H");
    std::swap(*this, next);
}

std::string LineScreen::row(int index) const {
    return row(index, columns);
}

std::string LineScreen::row(int index, int cells) const {
    std::string text;
    for (int column = 0; column < std::min(cells, columns);) {
        VTermScreenCell cell;
        vterm_screen_get_cell(vterm_obtain_screen(emulator.get()), VTermPos{index, column}, &cell);
        const std::string before = text;
        if (cell.chars[0] == 0) {
            text += ' ';
        }
        for (int i = 0; i < VTERM_MAX_CHARS_PER_CELL && cell.chars[i] != 0; ++i) {
            text += encoded(cell.chars[i]);
        }
        column += cell.width > 1 ? cell.width : 1;
        if (column > cells) {
            text = before;  // a wide sign that is cut through
        }
    }
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

std::vector<std::string> LineScreen::allRows() const {
    std::vector<std::string> all;
    for (int index = 0; index < rows; ++index) {
        all.push_back(row(index));
    }
    while (!all.empty() && all.back().empty()) {
        all.pop_back();
    }
    return all;
}

int LineScreen::cursorRow() const {
    VTermPos position = {};
    vterm_state_get_cursorpos(vterm_obtain_state(emulator.get()), &position);
    return position.row;
}

int LineScreen::cursorColumn() const {
    VTermPos position = {};
    vterm_state_get_cursorpos(vterm_obtain_state(emulator.get()), &position);
    return position.col;
}
