// The line editor of the modern interface: any bytes, in any pieces, on terminals of any size that
// changes meanwhile. Whatever comes, the screen of a terminal shows what the model holds, and
// nothing grows beyond its limits.

#include <algorithm>
#include <clocale>
#include <cstdint>
#include <string>
#include <vector>

#include "KeyDecoder.h"
#include "LineModel.h"
#include "LineRenderer.h"
#include "LineScreen.h"
#include "Require.h"

namespace {

constexpr char kPrompt[] = "[master]$ ";

// Characters about whose width the C library and the terminal emulator agree: one and two cells
// wide, and a mark.
std::string agreed(const std::string& text) {
    static const char* const known[] = {"\xc3\xa9", "\xe4\xb8\x96", "\xcc\x81", "\xef\xbf\xbd"};
    std::string result;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const auto byte = static_cast<unsigned char>(text[at]);
        if (byte < 0x80) {
            result += text[at];
        } else if ((byte & 0xc0U) == 0xc0U) {
            result += known[byte % 4];
        }
    }
    return result;
}

// An own reading of how the line lies on the screen, so that a mistake of the renderer is not
// repeated here.
struct Expected {
    std::vector<std::string> rows{""};
    std::size_t cursorRow = 0;
    int cursorColumn = 0;
};

Expected expectedOf(const std::string& text, std::size_t cursor, int columns) {
    Expected screen;
    int column = 0;
    const auto put = [&](const std::string& sign, int cells) {
        if (cells > columns) {
            cells = 1;
        }
        if (column + cells > columns) {
            screen.rows.emplace_back();
            column = 0;
        }
        screen.rows.back() += sign;
        column += cells;
    };
    for (const char c : std::string(kPrompt)) {
        put(std::string(1, c), 1);
    }
    for (std::size_t at = 0; at <= text.size();) {
        std::size_t length = 1;
        std::string sign;
        int cells = 1;
        if (at < text.size()) {
            const auto lead = static_cast<unsigned char>(text[at]);
            length = lead >= 0xe0 ? 3 : lead >= 0xc0 ? 2 : 1;
            sign = text.substr(at, length);
            cells = sign == "\xe4\xb8\x96" ? 2 : 1;
            if (sign == "\n") {
                sign = "\xe2\x86\xb5";
            } else {
                if (sign == "\xcc\x81") {
                    sign = " ";
                    length = 0;
                }
                while (text.compare(at + length, 2, "\xcc\x81") == 0) {
                    sign += "\xcc\x81";
                    length += 2;
                }
            }
            if (cells > columns) {
                sign = "?";
            }
        }
        if (at == cursor) {
            if (column + std::min(cells, columns) > columns) {
                screen.rows.emplace_back();
                column = 0;
            }
            screen.cursorRow = screen.rows.size() - 1;
            screen.cursorColumn = column;
        }
        if (at == text.size()) {
            break;
        }
        put(sign, cells);
        if (text[at] == '\n') {
            screen.rows.emplace_back();
            column = 0;
        }
        at += length;
    }
    return screen;
}

std::string trimmed(std::string row) {
    row.erase(row.find_last_not_of(' ') + 1);
    return row;
}

// A terminal keeps a few marks for each cell only.
std::string withoutMarks(const std::string& text) {
    std::string result;
    for (std::size_t at = 0; at < text.size();) {
        if (text.compare(at, 2, "\xcc\x81") == 0) {
            at += 2;
        } else {
            result += text[at++];
        }
    }
    return result;
}

class World {
public:
    World(int screenRows, int screenColumns)
        : rows(screenRows),
          columns(screenColumns),
          renderer(TextCoding::kUtf8, rows, columns),
          screen(rows, columns) {
        show();
    }

    void press(Key key) {
        key.text = agreed(key.text);
        const LineModel::Outcome outcome = model.press(key, history);
        require(model.cursor() <= model.text().size());
        require(model.text().size() <= LineModel::kMaxLineBytes);
        require(textcells::boundaryFrom(model.text(), model.cursor(), TextCoding::kUtf8) ==
                model.cursor());
        if (outcome == LineModel::Outcome::kLine || outcome == LineModel::Outcome::kInterrupt) {
            // What runs now writes its own rows.
            screen.take(renderer.finish() + "\x1b[H\x1b[2J");
            model.startLine();
        } else if (outcome == LineModel::Outcome::kClearScreen) {
            screen.take("\x1b[H\x1b[2J");
            renderer.forget();
        }
    }

    void resize(int screenRows, int screenColumns) {
        rows = screenRows;
        columns = screenColumns;
        screen.resize(rows, columns);
        screen.take(renderer.resize(rows, columns));
    }

    void show() {
        screen.take(renderer.draw({kPrompt, model.text(), model.cursor(), ""}));
        const Expected expected = expectedOf(model.text(), model.cursor(), columns);
        const std::size_t first = renderer.firstShownRow();
        const std::size_t height =
            std::min(expected.rows.size() - first, static_cast<std::size_t>(rows));
        require(first <= expected.cursorRow && expected.cursorRow < first + height);
        // The drawing may stand anywhere on the screen; the cursor tells where.
        const int top = screen.cursorRow() - static_cast<int>(expected.cursorRow - first);
        require(top >= 0);
        require(screen.cursorColumn() == expected.cursorColumn);
        for (std::size_t row = 0; row < height; ++row) {
            const std::string shown = screen.row(top + static_cast<int>(row));
            require(trimmed(withoutMarks(shown)) ==
                    trimmed(withoutMarks(expected.rows[first + row])));
        }
        for (int row = top + static_cast<int>(height); row < rows; ++row) {
            require(screen.row(row).empty());
        }
    }

private:
    int rows;
    int columns;
    LineRenderer renderer;
    LineScreen screen;
    LineModel model{TextCoding::kUtf8};
    const LineModel::History history = {
        "list node", "one\ntwo", std::string(90, 'h'), "cd tools", "\xe4\xb8\x96\xe4\xb8\x96",
        "list node"};
};

}  // namespace

// The first two bytes are the size of the terminal: three columns at least, because a carriage
// return does not make libvterm forget that a row is full when its only sign begins in the first
// column. Then come pieces: a byte that says how many bytes arrive at once, or that time passes, or
// that the terminal has another size.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool located = std::setlocale(LC_CTYPE, "C.UTF-8") != nullptr;
    require(located);
    if (size < 2 || size > 4096) {
        return 0;
    }
    World world(1 + data[0] % 12, 3 + data[1] % 38);
    KeyDecoder::Clock::time_point time;
    KeyDecoder decoder(TextCoding::kUtf8, [&] { return time; });
    std::size_t at = 2;
    while (at < size) {
        const unsigned int order = data[at++];
        if (order >= 0xf0 && at + 1 < size) {
            world.resize(1 + data[at] % 12, 3 + data[at + 1] % 38);
            at += 2;
        } else if (order >= 0xe0) {
            time += std::chrono::milliseconds(20 * (1U << (order & 7U)));
            decoder.idle();
        } else {
            const std::size_t length = std::min<std::size_t>(1 + order % 32, size - at);
            decoder.feed({reinterpret_cast<const char*>(data + at), length});
            at += length;
        }
        while (std::optional<Key> key = decoder.next()) {
            world.press(std::move(*key));
        }
        world.show();
    }
    return 0;
}
