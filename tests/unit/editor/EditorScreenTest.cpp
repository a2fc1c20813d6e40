// What the editor draws, seen through a terminal emulator and compared with a plain model of a
// line.

#include <memory>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <vterm.h>

#include "AbstractCommandLineRetriever.h"
#include "EditorKeys.h"
#include "RawPty.h"
#include "StandardStreams.h"

namespace {

constexpr unsigned short kRows = 60;

// The line as an editor without a screen would keep it.
class Model {
public:
    void press(const std::string& key) {
        const std::string bytes = keys::typed(key);
        if (key == "<bs>") {
            if (index > 0) {
                text.erase(--index, 1);
            }
        } else if (key == "<del>") {
            if (index < text.size()) {
                text.erase(index, 1);
            }
        } else if (key == "<left>") {
            index -= index > 0 ? 1U : 0U;
        } else if (key == "<right>") {
            index += index < text.size() ? 1U : 0U;
        } else if (key == "<home>") {
            index = 0;
        } else if (key == "<end>") {
            index = text.size();
        } else if (key == "<ins>") {
            inserts = !inserts;
        } else {
            if (!inserts && index < text.size()) {
                text.erase(index, 1);
            }
            text.insert(index++, bytes);
        }
    }

    std::string text;
    std::size_t index = 0;

private:
    bool inserts = true;
};

class Screen {
public:
    Screen(int height, int width)
        : columns(width), emulator(vterm_new(height, width), &vterm_free) {
        vterm_screen_reset(vterm_obtain_screen(emulator.get()), 1);
    }

    void show(const std::string& written) {
        // As the terminal's output processing does.
        std::string bytes;
        for (const char c : written) {
            bytes += c == '\n' ? "\r\n" : std::string(1, c);
        }
        vterm_input_write(emulator.get(), bytes.data(), bytes.size());
    }
    std::string cells(std::size_t count) const {
        std::string text;
        for (std::size_t i = 0; i < count; ++i) {
            const int at = static_cast<int>(i);
            VTermScreenCell cell;
            vterm_screen_get_cell(vterm_obtain_screen(emulator.get()),
                                  VTermPos{at / columns, at % columns}, &cell);
            text += cell.chars[0] == 0 ? ' ' : static_cast<char>(cell.chars[0]);
        }
        return text;
    }
    std::size_t cursor() const {
        VTermPos position = {};
        vterm_state_get_cursorpos(vterm_obtain_state(emulator.get()), &position);
        return static_cast<std::size_t>(position.row * columns + position.col);
    }

private:
    int columns;
    std::unique_ptr<VTerm, void (*)(VTerm*)> emulator;
};

struct Edited {
    std::string text;
    std::string drawn;
};

Edited edit(const std::string& symbols, unsigned short columns) {
    const RawPty pty(kRows, columns);
    pty.enterKeyMode();
    pty.type(keys::typed(symbols) + "\n");
    const RedirectedFd input(STDIN_FILENO, pty.nearEnd());
    CapturedOutput output;
    AbstractCommandLineRetriever editor;
    Edited edited;
    edited.text = editor.getCommandLine();
    edited.drawn = output.text();
    return edited;
}

class EditorScreenTest : public ::testing::TestWithParam<unsigned short> {};

TEST_P(EditorScreenTest, RandomEditingLooksLikeTheModel) {
    const unsigned short columns = GetParam();
    static const std::vector<std::string> special = {"<bs>",    "<del>",  "<left>", "<left>",
                                                     "<right>", "<home>", "<end>",  "<ins>"};
    for (unsigned int seed = 1; seed <= 150; ++seed) {
        std::mt19937 random(seed);
        Model model;
        std::string symbols;
        for (int i = 0; i < 150; ++i) {
            const std::string key =
                random() % 5 < 3 ? std::string(1, static_cast<char>('a' + random() % 26))
                                 : special[static_cast<std::size_t>(random()) % special.size()];
            if (model.text.size() >= static_cast<std::size_t>(kRows - 2) * columns &&
                key.size() == 1) {
                continue;
            }
            model.press(key);
            symbols += key;
        }
        const Edited edited = edit(symbols, columns);
        Screen screen(kRows, columns);
        screen.show(edited.drawn);
        SCOPED_TRACE("seed " + std::to_string(seed) + ": " + symbols);
        ASSERT_EQ(edited.text, model.text);
        // Three cells more: what was deleted must be gone from the screen too.
        ASSERT_EQ(model.text + "   ", screen.cells(model.text.size() + 3));
        ASSERT_EQ(model.index, screen.cursor());
    }
}

INSTANTIATE_TEST_SUITE_P(Widths, EditorScreenTest, ::testing::Values(1, 2, 3, 7, 20, 80));

}  // namespace
