#include "ShellOnTerminal.h"

namespace {

using EditingTest = ShellOnTerminal;

using Rows = std::vector<std::string>;

// The last rows of the screen.
Rows lastRows(const PtyTerminal& terminal, std::size_t count) {
    Rows all = terminal.rows();
    all.erase(all.begin(), all.end() - static_cast<std::ptrdiff_t>(std::min(count, all.size())));
    return all;
}

TEST_F(EditingTest, TypedTextShowsOnceAndRuns) {
    const auto terminal = start();
    terminal->type("cd tools<cr>");
    ASSERT_TRUE(terminal->untilLine("[master/tools]$ "));
    terminal->type("hello<cr>");
    ASSERT_TRUE(terminal->until([&] {
        return terminal->shows("hello") && terminal->lineAtCursor() == "[master/tools]$ ";
    }));
    quit(*terminal);
    EXPECT_TRUE(terminal->shows("Bye bye."));
}

TEST_F(EditingTest, EditsInsideTheLine) {
    const auto terminal = start();
    terminal->type("ac<left>b<home>x<del><end>d<bs>");
    ASSERT_TRUE(terminal->untilLine("[master]$ xbc"));
    terminal->type("<cr>");
    ASSERT_TRUE(terminal->untilShown("Unknown command: xbc"));
    quit(*terminal);
}

TEST_F(EditingTest, WrapsAtTheWidthOfTheTerminal) {
    // As wide as the prompt and the text together, so that both wrap at the same place.
    const auto terminal = start(10, 40);
    const int promptRow = terminal->cursor().row;
    terminal->type(std::string(30, 'a'));
    ASSERT_TRUE(terminal->until(
        [&] { return terminal->row(promptRow) == "[master]$ " + std::string(30, 'a'); }));
    terminal->type(std::string(9, 'b'));
    ASSERT_TRUE(terminal->until([&] { return terminal->row(promptRow + 1) == "bbbbbbbbb"; }));
    // The fortieth character of the text ends the screen line that the text would fill alone.
    terminal->type("c");
    ASSERT_TRUE(terminal->until([&] {
        return terminal->row(promptRow + 1) == "bbbbbbbbbc" &&
               terminal->cursor() == PtyTerminal::Position{promptRow + 2, 0};
    }));
    terminal->type("d<cr>");
    ASSERT_TRUE(terminal->until([&] { return terminal->lineAtCursor() == "[master]$ "; }));
    quit(*terminal);
}

TEST_F(EditingTest, InsertsInTheMiddleOfAWrappedLine) {
    const auto terminal = start(12, 20);
    std::string text;
    for (int i = 0; i < 50; ++i) {
        text += static_cast<char>('a' + i % 26);
    }
    terminal->type(text);
    ASSERT_TRUE(terminal->untilLine(text.substr(40)));
    const int last = terminal->cursor().row;
    for (int i = 0; i < 15; ++i) {
        terminal->type("<left>");
    }
    ASSERT_TRUE(terminal->until([&] {
        return terminal->cursor() == PtyTerminal::Position{last - 1, 15};
    }));
    terminal->type("XY");
    ASSERT_TRUE(terminal->until([&] {
        return terminal->row(last - 1) == text.substr(20, 15) + "XY" + text.substr(35, 3) &&
               terminal->row(last) == text.substr(38) &&
               terminal->cursor() == PtyTerminal::Position{last - 1, 17};
    }));
    terminal->type("<bs><bs><del>");
    ASSERT_TRUE(terminal->until([&] {
        return terminal->row(last - 1) == text.substr(20, 15) + text.substr(36, 5) &&
               terminal->row(last) == text.substr(41) &&
               terminal->cursor() == PtyTerminal::Position{last - 1, 15};
    }));
    terminal->type("<cr>");
    text.erase(35, 1);
    ASSERT_TRUE(terminal->until([&] { return terminal->lineAtCursor() == "[master]$ "; }));
    const std::string bytes = terminal->received();
    EXPECT_NE(bytes.find("Unknown command: " + text), std::string::npos);
    quit(*terminal);
}

TEST_F(EditingTest, BackspaceOverTheStartOfAScreenLineGoesUp) {
    const auto terminal = start(12, 20);
    terminal->type(std::string(20, 'a') + std::string(20, 'b'));
    ASSERT_TRUE(terminal->until([&] { return terminal->cursor().column == 0; }));
    const int row = terminal->cursor().row;
    terminal->type("<bs>");
    ASSERT_TRUE(terminal->until([&] {
        return terminal->row(row - 1) == std::string(19, 'b') &&
               terminal->cursor() == PtyTerminal::Position{row - 1, 19};
    }));
    terminal->type("c");
    ASSERT_TRUE(terminal->until([&] {
        return terminal->row(row - 1) == std::string(19, 'b') + "c" &&
               terminal->cursor().column == 0;
    }));
    terminal->type("<cr>");
    ASSERT_TRUE(terminal->until([&] { return terminal->lineAtCursor() == "[master]$ "; }));
    quit(*terminal);
}

TEST_F(EditingTest, LineThatFillsTheLastScreenLineScrolls) {
    const auto terminal = start(6, 20);
    terminal->type("cd<cr>cd<cr>cd<cr>cd<cr>cd<cr>cd<cr>");
    ASSERT_TRUE(terminal->until([&] {
        return terminal->cursor() == PtyTerminal::Position{5, 10} &&
               terminal->row(0) == "[master]$ cd";
    }));
    terminal->type(std::string(20, 'x'));
    ASSERT_TRUE(terminal->until([&] {
        return terminal->cursor() == PtyTerminal::Position{5, 0} &&
               terminal->row(3) == "[master]$ xxxxxxxxxx" && terminal->row(4) == "xxxxxxxxxx";
    }));
    terminal->type("y");
    ASSERT_TRUE(terminal->until([&] { return terminal->row(5) == "y"; }));
    terminal->type("<cr>");
    ASSERT_TRUE(terminal->until([&] { return terminal->lineAtCursor() == "[master]$ "; }));
    quit(*terminal);
}

TEST_F(EditingTest, CompletesCommandsAndLevels) {
    const auto terminal = start();
    terminal->type("cd po<tab>");
    ASSERT_TRUE(terminal->untilLine("[master]$ cd power"));
    EXPECT_EQ(1, terminal->bells());
    terminal->type("<cr>");
    ASSERT_TRUE(terminal->untilLine("[master/power]$ "));
    terminal->type("o<tab>");
    ASSERT_TRUE(terminal->until([&] {
        return lastRows(*terminal, 2) == Rows{"off    on", "[master/power]$ o"};
    }));
    terminal->type("f<tab>");
    ASSERT_TRUE(terminal->untilLine("[master/power]$ off"));
    terminal->type("<cr>");
    ASSERT_TRUE(terminal->untilLine("[master/power]$ "));
    terminal->type("cd<cr>");
    ASSERT_TRUE(terminal->untilLine("[master]$ "));
    terminal->type("cd<tab>");
    ASSERT_TRUE(terminal->untilShown("tools    tooling    power"));
    terminal->type("to<tab>");
    ASSERT_TRUE(terminal->untilLine("[master]$ cd tool"));
    terminal->type("zz<tab>");
    ASSERT_TRUE(terminal->until([&] { return terminal->bells() == 7; }));
    terminal->type("<cr>");
    ASSERT_TRUE(terminal->untilShown("Can not find command set: toolzz"));
    quit(*terminal);
}

TEST_F(EditingTest, WalksTheHistory) {
    const auto terminal = start();
    terminal->type("cd tools<cr>hello<cr>cd<cr>");
    ASSERT_TRUE(terminal->until([&] {
        return terminal->lineAtCursor() == "[master]$ " && terminal->shows("[master/tools]$ cd");
    }));
    terminal->type("<up>");
    ASSERT_TRUE(terminal->untilLine("[master]$ cd"));
    terminal->type("<up><up>");
    ASSERT_TRUE(terminal->untilLine("[master]$ cd tools"));
    const int bells = terminal->bells();
    terminal->type("<up>");
    ASSERT_TRUE(terminal->until([&] { return terminal->bells() == bells + 1; }));
    terminal->type("<down>");
    ASSERT_TRUE(terminal->untilLine("[master]$ hello"));
    terminal->type("<down><down>");
    ASSERT_TRUE(terminal->untilLine("[master]$ "));
    EXPECT_EQ("[master]$", terminal->row(terminal->cursor().row));
    terminal->type("<down>");
    ASSERT_TRUE(terminal->until([&] { return terminal->bells() == bells + 2; }));
    quit(*terminal);
}

TEST_F(EditingTest, RecallsByNumber) {
    const auto terminal = start();
    terminal->type("cd power<cr>cd<cr>!1<cr>");
    ASSERT_TRUE(terminal->untilShown("Execute \"cd power\""));
    ASSERT_TRUE(terminal->untilLine("[master/power]$ "));
    terminal->type("!0<cr>!-3<cr>!99<cr>");
    ASSERT_TRUE(terminal->untilShown("Unknown command: !0"));
    ASSERT_TRUE(terminal->untilShown("Unknown command: !-3"));
    ASSERT_TRUE(terminal->untilShown("Unknown command: !99"));
    quit(*terminal);
}

TEST_F(EditingTest, OverwritesAfterTheInsertKey) {
    const auto terminal = start();
    terminal->type("abcd<home><ins>XY");
    ASSERT_TRUE(
        terminal->until([&] { return terminal->row(terminal->cursor().row) == "[master]$ XYcd"; }));
    EXPECT_EQ("[master]$ XY", terminal->lineAtCursor());
    terminal->type("<ins>Z");
    ASSERT_TRUE(terminal->until(
        [&] { return terminal->row(terminal->cursor().row) == "[master]$ XYZcd"; }));
    terminal->type("<cr>");
    ASSERT_TRUE(terminal->untilShown("Unknown command: XYZcd"));
    quit(*terminal);
}

TEST_F(EditingTest, BasicCommandsCompleteAtEveryLevel) {
    const auto terminal = start();
    terminal->type("cd tools<cr>his<tab>");
    ASSERT_TRUE(terminal->untilLine("[master/tools]$ history"));
    terminal->type("<cr>");
    ASSERT_TRUE(terminal->untilShown("1  cd tools"));
    quit(*terminal);
}

}  // namespace
