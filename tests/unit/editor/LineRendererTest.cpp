#include <clocale>
#include <ostream>

#include <gtest/gtest.h>

#include "LineRenderer.h"
#include "LineScreen.h"

namespace {

using Rows = std::vector<std::string>;

class LineRendererTest : public ::testing::Test {
protected:
    LineRendererTest() { std::setlocale(LC_CTYPE, "C.UTF-8"); }
    ~LineRendererTest() override { std::setlocale(LC_CTYPE, "C"); }

    static LineRenderer::View view(const std::string& text, std::size_t cursor,
                                   const std::string& prompt = "$ ") {
        return {prompt, text, cursor, ""};
    }
    static LineRenderer::View atEnd(const std::string& text) { return view(text, text.size()); }
};

TEST_F(LineRendererTest, WritesOnlyWhatDiffers) {
    LineRenderer renderer(TextCoding::kUtf8, 24, 80);
    EXPECT_EQ("$ ", renderer.draw(atEnd("")));
    EXPECT_EQ("a", renderer.draw(atEnd("a")));
    EXPECT_EQ("b", renderer.draw(atEnd("ab")));
    EXPECT_EQ("", renderer.draw(atEnd("ab")));
    EXPECT_EQ("\x1b[D", renderer.draw(view("ab", 1)));
    EXPECT_EQ("xb\x1b[D", renderer.draw(view("axb", 2)));
    EXPECT_EQ("\x1b[Db\x1b[K\x1b[D", renderer.draw(view("ab", 1)));
    EXPECT_EQ("\r\n", renderer.finish());
}

TEST_F(LineRendererTest, ErasesWhatIsGone) {
    LineRenderer renderer(TextCoding::kUtf8, 24, 80);
    LineScreen screen(24, 80);
    screen.take(renderer.draw(atEnd("one two")));
    const std::string bytes = renderer.draw(view("one", 0));
    EXPECT_NE(std::string::npos, bytes.find("\x1b[K"));
    screen.take(bytes);
    EXPECT_EQ("$ one", screen.row(0));
    EXPECT_EQ(2, screen.cursorColumn());
}

struct Size {
    int rows;
    int columns;
};

void PrintTo(const Size& size, std::ostream* out) {
    *out << size.columns << 'x' << size.rows;
}

class LineRendererSize : public LineRendererTest, public ::testing::WithParamInterface<Size> {
protected:
    const int rows = GetParam().rows;
    const int columns = GetParam().columns;
    LineRenderer renderer{TextCoding::kUtf8, rows, columns};
    LineScreen screen{rows, columns};
};

TEST_P(LineRendererSize, LongLineTakesRows) {
    const auto width = static_cast<std::size_t>(columns);
    const std::string text(width * 3 - 2, 'x');
    screen.take(renderer.draw(atEnd(text)));
    EXPECT_EQ(
        (Rows{"$ " + text.substr(0, width - 2), text.substr(0, width), text.substr(0, width)}),
        screen.allRows());
    EXPECT_EQ(3, screen.cursorRow()) << "a full row leaves the cursor in the next one";
    EXPECT_EQ(0, screen.cursorColumn());
    screen.take(renderer.draw(view("short", 2)));
    EXPECT_EQ(Rows{"$ short"}, screen.allRows());
    EXPECT_EQ(0, screen.cursorRow());
    EXPECT_EQ(4, screen.cursorColumn());
}

TEST_P(LineRendererSize, WideSignDoesNotTearAtTheMargin) {
    const std::string wide = "\xe4\xb8\x96";
    const std::string text = std::string(static_cast<std::size_t>(columns) - 3, 'x') + wide + "y";
    screen.take(renderer.draw(atEnd(text)));
    EXPECT_EQ("$ " + text.substr(0, static_cast<std::size_t>(columns) - 3), screen.row(0));
    EXPECT_EQ(wide + "y", screen.row(1));
    EXPECT_EQ(3, screen.cursorColumn());
    screen.take(renderer.draw(view(text, static_cast<std::size_t>(columns) - 3)));
    EXPECT_EQ(1, screen.cursorRow()) << "the cursor goes where the sign is";
    EXPECT_EQ(0, screen.cursorColumn());
}

TEST_P(LineRendererSize, LineLongerThanTheScreenShowsTheRowsAroundTheCursor) {
    const auto width = static_cast<std::size_t>(columns);
    std::string text;
    for (int row = 0; row < rows * 3; ++row) {
        std::string number = std::to_string(row) + ":";
        text += number + std::string(width - number.size(), '.');
    }
    screen.take(renderer.draw(view(text, text.size() - 1, "")));
    EXPECT_EQ(rows - 1, screen.cursorRow());
    EXPECT_EQ(0U, screen.row(0).find(std::to_string(rows * 2) + ":"));
    screen.take(renderer.draw(view(text, 0, "")));
    EXPECT_EQ(0, screen.cursorRow());
    EXPECT_EQ(0U, screen.row(0).find("0:"));
    EXPECT_EQ(0U, screen.row(rows - 1).find(std::to_string(rows - 1) + ":"));
}

TEST_P(LineRendererSize, BeginsWhereTheCursorStandsAndScrolls) {
    for (int row = 0; row < rows; ++row) {
        screen.take("before\r\n");
    }
    const std::string text(static_cast<std::size_t>(columns) * 2, 'x');
    screen.take(renderer.draw(atEnd(text)));
    EXPECT_EQ("before", screen.row(rows - 4));
    EXPECT_EQ(0U, screen.row(rows - 3).find("$ x"));
    screen.take(renderer.finish() + "result");
    EXPECT_EQ("result", screen.row(rows - 1));
    EXPECT_EQ("xx", screen.row(rows - 2));
}

TEST_P(LineRendererSize, ResizeInMidLineDrawsAnew) {
    const std::string text(100, 'x');
    for (const Size next : {Size{10, 20}, Size{30, 100}, Size{rows, columns}}) {
        screen.take("\x1b[H\x1b[2J");
        renderer.forget();
        screen.take(renderer.draw(view(text, 3)));
        screen.resize(next.rows, next.columns);
        screen.take(renderer.resize(next.rows, next.columns));
        screen.take(renderer.draw(view(text, 3)));
        EXPECT_EQ(0, screen.cursorRow());
        EXPECT_EQ(5, screen.cursorColumn());
        std::string all;
        for (const std::string& row : screen.allRows()) {
            all += row;
        }
        EXPECT_EQ("$ " + text, all);
        screen.resize(rows, columns);
        renderer.resize(rows, columns);
    }
}

INSTANTIATE_TEST_SUITE_P(Sizes, LineRendererSize,
                         ::testing::Values(Size{24, 80}, Size{10, 40}, Size{50, 200}));

TEST_F(LineRendererTest, CountsThePromptWithoutItsColours) {
    LineRenderer renderer(TextCoding::kUtf8, 24, 10);
    LineScreen screen(24, 10);
    screen.take(renderer.draw(view("abcd", 4, "\x1b[1;31m[\xc3\xa9]\x1b[0m$ ")));
    EXPECT_EQ((Rows{"[\xc3\xa9]$ abcd"}), screen.allRows());
    EXPECT_EQ(9, screen.cursorColumn());
    EXPECT_EQ("e\r\n", renderer.draw(view("abcde", 5, "\x1b[1;31m[\xc3\xa9]\x1b[0m$ ")));
}

TEST_F(LineRendererTest, ShowsNewlinesAndMarks) {
    LineRenderer renderer(TextCoding::kUtf8, 24, 80);
    LineScreen screen(24, 80);
    screen.take(renderer.draw(atEnd("one\ntwo e\xcc\x81!")));
    EXPECT_EQ((Rows{"$ one\xe2\x86\xb5", "two e\xcc\x81!"}), screen.allRows());
    EXPECT_EQ(6, screen.cursorColumn());
}

TEST_F(LineRendererTest, ObeysNothingOfTheText) {
    LineRenderer renderer(TextCoding::kUtf8, 24, 80);
    LineScreen screen(24, 80);
    screen.take(renderer.draw(view("a\x1b[2Jb\x07\xff", 0, "\x1b[2J$ ")));
    EXPECT_EQ(Rows{"[2J$ a?[2Jb??"}, screen.allRows());
}

TEST_F(LineRendererTest, HintStandsGreyBehindTheText) {
    LineRenderer renderer(TextCoding::kUtf8, 24, 80);
    LineScreen screen(24, 80);
    LineRenderer::View shown = atEnd("list");
    shown.hint = " -n NODE";
    const std::string bytes = renderer.draw(shown);
    EXPECT_EQ("$ list\x1b[90m -n NODE\x1b[0m\r\x1b[6C", bytes);
    screen.take(bytes);
    EXPECT_EQ(6, screen.cursorColumn());
    shown.hint.clear();
    screen.take(renderer.draw(shown));
    EXPECT_EQ("$ list", screen.row(0));
}

TEST_F(LineRendererTest, ByteIsACellInTheCLocale) {
    LineRenderer renderer(TextCoding::kBytes, 24, 8);
    EXPECT_EQ("$ \xe9\xe8?6n$\r\n!", renderer.draw(atEnd("\xe9\xe8\x9b"
                                                         "6n\n!")));
    EXPECT_EQ("\r", renderer.draw(view("\xe9\xe8\x9b"
                                       "6n\n!",
                                       6)));
}

TEST_F(LineRendererTest, NarrowTerminalsShowWhatTheyCan) {
    for (int columns = 1; columns <= 3; ++columns) {
        LineRenderer renderer(TextCoding::kUtf8, 5, columns);
        LineScreen screen(5, columns);
        screen.take(
            renderer.draw(atEnd("a\xe4\xb8\x96"
                                "bc")));
        EXPECT_LT(screen.cursorRow(), 5);
        EXPECT_FALSE(screen.allRows().empty());
    }
}

}  // namespace
