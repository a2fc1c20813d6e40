// The line editor by its bytes and by what a terminal shows of them.
#include <algorithm>
#include <csignal>
#include <sys/ioctl.h>
#include <tuple>

#include <gtest/gtest.h>
#include <pty.h>

#include "AbstractCommandLineRetriever.h"
#include "Contract.h"
#include "EditorKeys.h"
#include "PlainScreen.h"
#include "StandardInput.h"
#include "UniqueFd.h"

namespace {

using keys::times;

class Editor : public AbstractCommandLineRetriever {
public:
    using AbstractCommandLineRetriever::cursorIndex;
    using AbstractCommandLineRetriever::cursorPos;
    using AbstractCommandLineRetriever::insertMode;
    using AbstractCommandLineRetriever::line;
};

class EditorContract : public ::testing::Test {
protected:
    ~EditorContract() override {
        rowNum = 25;
        colNum = 80;
    }
    std::string reads(const std::string& symbols) {
        const StandardInput input = StandardInput::holding(keys::typed(symbols));
        std::string text;
        shown = printedBy([&] { text = editor.getCommandLine(); });
        return text;
    }
    long bells() const { return std::count(shown.begin(), shown.end(), '\a'); }

    Editor editor;
    std::string shown;
};

TEST_F(EditorContract, StartsAsStated) {
    EXPECT_TRUE(editor.insertMode);
    EXPECT_EQ(editor.cursorPos, 0u);
    EXPECT_EQ(editor.cursorIndex, 0);
    EXPECT_EQ(editor.line.str(), "");
    EXPECT_EQ(rowNum, 25);
    EXPECT_EQ(colNum, 80);
    EXPECT_EQ(sizeof rowNum, 2u);
}

TEST_F(EditorContract, PrimitivesAreTheseBytes) {
    EXPECT_EQ(printedBy([&] {
                  editor.putUp();
                  editor.putDown();
                  editor.putRight();
                  editor.putLeft();
                  editor.putEnter();
                  editor.putSpace();
                  editor.putBeep();
              }),
              "\x1b[A\x1b[B\x1b[C\x1b[D\n \a");
}

TEST_F(EditorContract, PlaceholdersNameTheirKey) {
    EXPECT_EQ(printedBy([&] {
                  editor.resetHistoryIndex();
                  editor.upPressed();
                  editor.downPressed();
                  editor.tabPressed();
              }),
              "Up\nDown\nTab\n");
    reads("<up><down><tab><lf>");
    EXPECT_EQ(shown, "Up\nDown\nTab\n\a");
}

TEST_F(EditorContract, StepsAcrossTheWrap) {
    unsigned int pos = 78;
    EXPECT_EQ(printedBy([&] { editor.moveRightInConsole(&pos); }), "");
    EXPECT_EQ(pos, 79u);
    EXPECT_EQ(printedBy([&] { editor.moveRightInConsole(&pos); }),
              times(80, keys::left) + keys::down);
    EXPECT_EQ(pos, 80u);
    EXPECT_EQ(printedBy([&] { editor.moveIndexLeftInConsole(&pos); }),
              times(80, keys::right) + keys::up);
    EXPECT_EQ(pos, 79u);
    EXPECT_EQ(printedBy([&] { editor.moveIndexLeftInConsole(&pos); }), keys::left);
    EXPECT_EQ(pos, 78u);
    EXPECT_EQ(printedBy([&] { editor.moveIndexLeftInConsole(nullptr); }), "");
    colNum = 3;
    pos = 5;
    EXPECT_EQ(printedBy([&] { editor.moveRightInConsole(&pos); }),
              times(3, keys::left) + keys::down);
    EXPECT_EQ(pos, 6u);
}

TEST_F(EditorContract, ErasesCellByCell) {
    editor.cursorPos = 81;
    EXPECT_EQ(printedBy([&] { editor.erase(2); }),
              keys::left + " " + keys::left + times(80, keys::right) + keys::up + " " + keys::left);
    EXPECT_EQ(editor.cursorPos, 79u);
    EXPECT_EQ(printedBy([&] { editor.erase(0); }), "");
}

TEST_F(EditorContract, KeptInTextIsPartOfTheLine) {
    editor.keyIn("ab");
    editor.keyIn("c");
    EXPECT_EQ(editor.line.str(), "abc");
    EXPECT_EQ(reads("X<lf>"), "abcX");
    EXPECT_EQ(shown, "X");
    EXPECT_EQ(reads("<lf>"), "") << "the line is cleared for the next one";
}

TEST_F(EditorContract, SizeThatIsNotKnownIsTheDefault) {
    rowNum = 3;
    colNum = 4;
    const StandardInput input = StandardInput::file("/dev/null");
    AbstractCommandLineRetriever::handleWindowSizeChange(28);
    EXPECT_EQ(rowNum, 25);
    EXPECT_EQ(colNum, 80);
}

TEST_F(EditorContract, SizeOfTheTerminalIsTakenOver) {
    int master = -1;
    int terminal = -1;
    ASSERT_EQ(::openpty(&master, &terminal, nullptr, nullptr, nullptr), 0);
    const UniqueFd ends[] = {UniqueFd(master), UniqueFd(terminal)};
    const StandardInput input(terminal);
    for (const auto& [size, rows, columns] :
         {std::tuple<winsize, int, int>{{40, 132, 0, 0}, 40, 132},
          {{0, 132, 0, 0}, 25, 132},
          {{40, 0, 0, 0}, 40, 80},
          {{0, 0, 0, 0}, 25, 80}}) {
        ASSERT_EQ(::ioctl(master, TIOCSWINSZ, &size), 0);
        AbstractCommandLineRetriever::handleWindowSizeChange(SIGWINCH);
        EXPECT_EQ(rowNum, rows);
        EXPECT_EQ(colNum, columns);
    }
}

TEST_F(EditorContract, ReadingListensForResizes) {
    ::signal(SIGWINCH, SIG_DFL);
    reads("<lf>");
    struct sigaction installed = {};
    ASSERT_EQ(::sigaction(SIGWINCH, nullptr, &installed), 0);
    EXPECT_EQ(installed.sa_handler, &AbstractCommandLineRetriever::handleWindowSizeChange);
    rowNum = 1;
    ::raise(SIGWINCH);
    EXPECT_NE(rowNum, 1);
    ::signal(SIGWINCH, SIG_DFL);
}

struct Typed {
    std::string keys;
    std::string line;
    long bells;
};

void PrintTo(const Typed& row, std::ostream* out) {
    *out << row.keys;
}

class TypedLineContract : public EditorContract, public ::testing::WithParamInterface<Typed> {};

TEST_P(TypedLineContract, IsWhatTheScreenShowed) {
    EXPECT_EQ(reads(GetParam().keys + "<lf>"), GetParam().line);
    EXPECT_EQ(bells(), GetParam().bells);
    PlainScreen screen(200, 80);
    screen.take(shown);
    EXPECT_EQ(screen.text(), GetParam().line);
}

INSTANTIATE_TEST_SUITE_P(
    Keys, TypedLineContract,
    ::testing::Values(
        Typed{"", "", 0}, Typed{"abc", "abc", 0}, Typed{"<bs>", "", 1}, Typed{"<del>", "", 1},
        Typed{"abc<bs>", "ab", 0}, Typed{"abc<del>", "abc", 1}, Typed{"a<bs><bs><bs>", "", 2},
        Typed{"abc<left><bs>", "ac", 0}, Typed{"abc<home><bs>", "abc", 1},
        Typed{"abc<home><del>", "bc", 0}, Typed{"abc<home><del><del><del><del>", "", 1},
        Typed{"abc<left><left>X", "aXbc", 0}, Typed{"abc<home>XY", "XYabc", 0},
        Typed{"abc<home>X<end>Y", "XabcY", 0}, Typed{"abc<ins><home>XY", "XYc", 0},
        Typed{"abc<ins><home>VWXYZ", "VWXYZ", 0}, Typed{"abc<ins><ins><home>X", "Xabc", 0},
        Typed{"abc<right><right>d", "abcd", 0}, Typed{"abc<left><left><left><left>X", "Xabc", 0},
        Typed{"<home><end><left><right>", "", 0}, Typed{"ab<esc>[Hc", "abc", 0},
        Typed{"ab<esc>[Zc", "abc", 0}, Typed{"ab<esc>OAc", "abc", 0},
        Typed{"hello world<left><left><left><left><left><bs>,", "hello,world", 0}));

TEST_F(EditorContract, InsertModeLastsBeyondTheLine) {
    reads("<ins><lf>");
    EXPECT_FALSE(editor.insertMode);
    EXPECT_EQ(reads("abc<home>X<lf>"), "Xbc");
}

TEST_F(EditorContract, EscapeWithAnotherByteIsDiagnosed) {
    EXPECT_EQ(reads("a<esc>xyb<lf>"), "ab") << "two bytes belong to the escape";
    EXPECT_EQ(shown, "ac1=120\nb");
    reads("<esc><esc>y<lf>");
    EXPECT_EQ(shown, "c1=27\n");
}

TEST_F(EditorContract, EightyCharactersStandInTheFirstColumnOfTheNextLine) {
    const std::string full = times(80, "m");
    EXPECT_EQ(reads(full + "<lf>"), full);
    EXPECT_EQ(shown.substr(0, 80 + 80 * 3 + 3), full + times(80, keys::left) + keys::down);
    PlainScreen screen(10, 80);
    screen.take(shown);
    EXPECT_EQ(screen.row(), 1);
    EXPECT_EQ(screen.column(), 0);
}

// The question itself goes to terminals only; the answer is taken wherever it comes from.
TEST_F(EditorContract, WrapOnTheLastRowScrolls) {
    for (const auto& [reply, scrolls] : {std::pair<std::string, bool>{"<esc>[25;1R", true},
                                         std::pair<std::string, bool>{"<esc>[24;1R", false}}) {
        EXPECT_EQ(reads(times(80, "m") + reply + "z<lf>"), times(80, "m") + "z");
        EXPECT_EQ(shown, times(80, "m") + times(80, keys::left) + keys::down +
                             (scrolls ? "\n" : "") + "z");
    }
}

TEST_F(EditorContract, EditsAcrossTheWrap) {
    const std::string text = times(20, "0123456789");
    std::string expected = text;
    expected.insert(75, "X");
    expected.erase(79, 3);
    // 125 to the left of the end, one in, three on, three out.
    EXPECT_EQ(
        reads(text + times(125, "<left>") + "X" + times(3, "<right>") + "<del><del><del><lf>"),
        expected);
    EXPECT_EQ(bells(), 0);
    PlainScreen screen(10, 80);
    screen.take(shown);
    EXPECT_EQ(screen.text(), expected);
    EXPECT_EQ(screen.row() * 80 + screen.column(), 79);
}

TEST_F(EditorContract, EndOfInputGivesWhatStandsOnTheLine) {
    EXPECT_EQ(reads("list"), "list");
    EXPECT_EQ(reads(""), "");
    EXPECT_EQ(reads("ab<esc>"), "ab");
    EXPECT_EQ(reads("ab<esc>["), "ab");
    EXPECT_EQ(reads("ab<esc>[3"), "ab");
}

}  // namespace
