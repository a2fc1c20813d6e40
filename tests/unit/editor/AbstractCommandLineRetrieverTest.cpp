#include <algorithm>
#include <csignal>
#include <functional>
#include <sys/ioctl.h>
#include <tuple>

#include <gtest/gtest.h>
#include <pty.h>

#include "AbstractCommandLineRetriever.h"
#include "EditorKeys.h"
#include "PlainScreen.h"
#include "StandardInput.h"
#include "StandardStreams.h"
#include "UniqueFd.h"

namespace {

using keys::bell;
using keys::blankBack;
using keys::down;
using keys::left;
using keys::right;
using keys::times;
using keys::typed;
using keys::up;

class Editor : public AbstractCommandLineRetriever {
public:
    using AbstractCommandLineRetriever::cursorIndex;
    using AbstractCommandLineRetriever::cursorPos;
    using AbstractCommandLineRetriever::insertMode;
    using AbstractCommandLineRetriever::line;

    int resets = 0;
    void resetHistoryIndex() override { ++resets; }
};

class AbstractCommandLineRetrieverTest : public ::testing::Test {
protected:
    void SetUp() override {
        rowNum = 25;
        colNum = 80;
    }

    // Types the keys and returns the line; what was drawn is in drawn.
    std::string edit(const std::string& symbols) {
        const TypedInput input(typed(symbols));
        CapturedOutput output;
        std::string text = editor.getCommandLine();
        drawn = output.text();
        return text;
    }

    Editor editor;
    std::string drawn;
};

TEST_F(AbstractCommandLineRetrieverTest, PrimitivesWriteTheirBytes) {
    EXPECT_EQ("\x1b[A", writtenBy([&] { editor.putUp(); }));
    EXPECT_EQ("\x1b[B", writtenBy([&] { editor.putDown(); }));
    EXPECT_EQ("\x1b[C", writtenBy([&] { editor.putRight(); }));
    EXPECT_EQ("\x1b[D", writtenBy([&] { editor.putLeft(); }));
    EXPECT_EQ("\n", writtenBy([&] { editor.putEnter(); }));
    EXPECT_EQ(" ", writtenBy([&] { editor.putSpace(); }));
    EXPECT_EQ("\a", writtenBy([&] { editor.putBeep(); }));
}

TEST_F(AbstractCommandLineRetrieverTest, PlaceholdersNameTheirKeys) {
    EXPECT_EQ("Up\n", writtenBy([&] { editor.upPressed(); }));
    EXPECT_EQ("Down\n", writtenBy([&] { editor.downPressed(); }));
    EXPECT_EQ("Tab\n", writtenBy([&] { editor.tabPressed(); }));
}

TEST_F(AbstractCommandLineRetrieverTest, MovingRightWrapsAtEveryMultipleOfTheWidth) {
    unsigned int pos = 78;
    EXPECT_EQ("", writtenBy([&] { editor.moveRightInConsole(&pos); }));
    EXPECT_EQ(79U, pos);
    EXPECT_EQ(writtenBy([&] { editor.moveRightInConsole(&pos); }), times(80, left) + down);
    EXPECT_EQ(80U, pos);
    pos = 159;
    EXPECT_EQ(writtenBy([&] { editor.moveRightInConsole(&pos); }), times(80, left) + down);
    EXPECT_EQ(160U, pos);
}

TEST_F(AbstractCommandLineRetrieverTest, MovingRightFollowsTheCurrentWidth) {
    colNum = 3;
    unsigned int pos = 2;
    EXPECT_EQ(writtenBy([&] { editor.moveRightInConsole(&pos); }), left + left + left + down);
    colNum = 1;
    EXPECT_EQ(writtenBy([&] { editor.moveRightInConsole(&pos); }), left + down);
    EXPECT_EQ(4U, pos);
}

TEST_F(AbstractCommandLineRetrieverTest, MovingLeftClimbsAtTheFirstColumn) {
    unsigned int pos = 81;
    EXPECT_EQ(left, writtenBy([&] { editor.moveIndexLeftInConsole(&pos); }));
    EXPECT_EQ(80U, pos);
    EXPECT_EQ(writtenBy([&] { editor.moveIndexLeftInConsole(&pos); }), times(80, right) + up);
    EXPECT_EQ(79U, pos);
}

TEST_F(AbstractCommandLineRetrieverTest, MovingTakesNull) {
    EXPECT_EQ("", writtenBy([&] {
                  editor.moveIndexLeftInConsole(nullptr);
                  editor.moveRightInConsole(nullptr);
              }));
}

TEST_F(AbstractCommandLineRetrieverTest, MovingLeftTakesZeroForAFirstColumnToo) {
    unsigned int pos = 0;
    EXPECT_EQ(times(80, right) + up, writtenBy([&] { editor.moveIndexLeftInConsole(&pos); }));
    EXPECT_EQ(0U - 1U, pos);
}

TEST_F(AbstractCommandLineRetrieverTest, EraseBlanksCellByCell) {
    editor.cursorPos = 3;
    EXPECT_EQ(writtenBy([&] { editor.erase(2); }), left + blankBack + left + blankBack);
    EXPECT_EQ(1U, editor.cursorPos);
    editor.cursorPos = 80;
    EXPECT_EQ(writtenBy([&] { editor.erase(1); }), times(80, right) + up + blankBack);
    EXPECT_EQ(79U, editor.cursorPos);
    EXPECT_EQ("", writtenBy([&] { editor.erase(0); }));
}

TEST_F(AbstractCommandLineRetrieverTest, KeyInAppendsWithoutDrawing) {
    EXPECT_EQ("", writtenBy([&] {
                  editor.keyIn("abc");
                  editor.keyIn("def");
              }));
    EXPECT_EQ("abcdef", editor.line.str());
    EXPECT_EQ("abcdefg", edit("g<lf>"));
}

TEST_F(AbstractCommandLineRetrieverTest, DrawsTypedTextAndLeavesTheLineFeedToTheCaller) {
    EXPECT_EQ("list -a", edit("list -a<lf>"));
    EXPECT_EQ("list -a", drawn);
    EXPECT_EQ(1, editor.resets);
    EXPECT_FALSE(editor.isEndOfInput());
}

TEST_F(AbstractCommandLineRetrieverTest, EachLineStartsEmpty) {
    EXPECT_EQ("first", edit("first<left><left><lf>"));
    EXPECT_EQ("", editor.line.str());
    EXPECT_EQ("2", edit("2<lf>"));
    EXPECT_EQ("2", drawn);
}

TEST_F(AbstractCommandLineRetrieverTest, FillingTheLastColumnGoesToTheNextScreenLine) {
    const std::string full(80, 'x');
    EXPECT_EQ(full, edit(full + "<lf>"));
    EXPECT_EQ(drawn, full + times(80, left) + down);
    EXPECT_EQ(edit(full.substr(1) + "<lf>"), full.substr(1));
    EXPECT_EQ(drawn, full.substr(1));
}

TEST_F(AbstractCommandLineRetrieverTest, BackspaceAtTheStartSoundsTheBell) {
    EXPECT_EQ("", edit("<bs><lf>"));
    EXPECT_EQ(drawn, bell);
    EXPECT_EQ("ab", edit("ab<left><left><bs><lf>"));
    EXPECT_EQ("ab" + left + left + bell, drawn);
}

TEST_F(AbstractCommandLineRetrieverTest, DeleteAtTheEndSoundsTheBell) {
    EXPECT_EQ("", edit("<del><lf>"));
    EXPECT_EQ(drawn, bell);
    EXPECT_EQ("ab", edit("ab<del><lf>"));
    EXPECT_EQ("ab" + bell, drawn);
}

TEST_F(AbstractCommandLineRetrieverTest, BackspaceAtTheEndBlanksOneCell) {
    EXPECT_EQ("ab", edit("abc<bs><lf>"));
    EXPECT_EQ("abc" + left + " " + left, drawn);
}

TEST_F(AbstractCommandLineRetrieverTest, BackspaceInsideRedrawsTheRest) {
    EXPECT_EQ("acd", edit("abcd<left><left><bs><lf>"));
    EXPECT_EQ("abcd" + left + left + left + " " + left + "cd " + times(3, left), drawn);
}

TEST_F(AbstractCommandLineRetrieverTest, DeleteInsideRedrawsTheRest) {
    EXPECT_EQ("abd", edit("abcd<left><left><del><lf>"));
    EXPECT_EQ("abcd" + left + left + "d " + left + left, drawn);
}

TEST_F(AbstractCommandLineRetrieverTest, InsertingInsideRedrawsTheRest) {
    EXPECT_EQ("abc", edit("ac<left>b<lf>"));
    EXPECT_EQ("ac" + left + "bc" + left, drawn);
}

TEST_F(AbstractCommandLineRetrieverTest, InsertKeyTogglesOverwriting) {
    EXPECT_EQ("aXYZd", edit("abcd<left><left><left><ins>XY<ins>Z<lf>"));
    EXPECT_EQ("abcd" + times(3, left) + "XY" + "Zd" + left, drawn);
    EXPECT_TRUE(editor.insertMode);
}

TEST_F(AbstractCommandLineRetrieverTest, OverwritingGoesOnBehindTheEnd) {
    EXPECT_EQ("aXYZ", edit("ab<left><ins>XYZ<lf>"));
    EXPECT_FALSE(editor.insertMode);
}

TEST_F(AbstractCommandLineRetrieverTest, LeftAndRightStopAtBothEnds) {
    EXPECT_EQ("axb", edit("<left><right>ab<right><left><left><left><right>x<lf>"));
    EXPECT_EQ("ab" + left + left + right + "xb" + left, drawn);
}

TEST_F(AbstractCommandLineRetrieverTest, HomeAndEndMoveCharacterByCharacter) {
    EXPECT_EQ("xabcy", edit("abc<home>x<end>y<lf>"));
    EXPECT_EQ("abc" + times(3, left) + "xabc" + times(3, left) + times(3, right) + "y", drawn);
}

TEST_F(AbstractCommandLineRetrieverTest, UpDownAndTabReachTheVirtualOperations) {
    EXPECT_EQ("", edit("<up><down><tab><lf>"));
    EXPECT_EQ("Up\nDown\nTab\n" + bell, drawn);
}

TEST_F(AbstractCommandLineRetrieverTest, UnknownEscapeShowsItsSecondByte) {
    EXPECT_EQ("ab", edit("<esc>xyab<lf>"));
    EXPECT_EQ("c1=120\nab", drawn);
    EXPECT_EQ("A", edit("<esc><esc>[A<lf>"));
    EXPECT_EQ("c1=27\nA", drawn);
}

TEST_F(AbstractCommandLineRetrieverTest, UnlistedSequencesAreIgnored) {
    EXPECT_EQ("ab", edit("a<esc>[H<esc>[F<esc>[Z<esc>OP<esc>OAb<lf>"));
    EXPECT_EQ("ab", drawn);
}

TEST_F(AbstractCommandLineRetrieverTest, OtherControlBytesAreText) {
    const std::string control("a\0b\x03\x04\x08\r\x0c", 8);
    EXPECT_EQ(control, edit(control + "<lf>"));
    EXPECT_EQ(drawn, control);
}

TEST_F(AbstractCommandLineRetrieverTest, EveryByteAboveAsciiIsKept) {
    std::string all = "gr\xc3\xbc\xc3\x9f ";
    for (int c = 0x80; c <= 0xff; ++c) {
        all += static_cast<char>(c);
    }
    EXPECT_EQ(all, edit(all + "<lf>"));
}

TEST_F(AbstractCommandLineRetrieverTest, EndOfInputHandsOverWhatWasTyped) {
    EXPECT_EQ("quit", edit("quit"));
    EXPECT_TRUE(editor.isEndOfInput());
    EXPECT_EQ(1, editor.resets);
    EXPECT_EQ("", edit(""));
    EXPECT_TRUE(editor.isEndOfInput());
    EXPECT_EQ("", edit("<lf>"));
    EXPECT_FALSE(editor.isEndOfInput());
}

TEST_F(AbstractCommandLineRetrieverTest, EndOfInputInsideAnEscapeSequenceIsJustTheEnd) {
    for (const char* part : {"<esc>", "<esc>[", "<esc>O", "<esc>x", "<esc>[2", "<esc>[3"}) {
        EXPECT_EQ("ab", edit("ab<left>" + std::string(part))) << part;
        EXPECT_EQ("ab" + left, drawn) << part;
        EXPECT_TRUE(editor.isEndOfInput()) << part;
        EXPECT_TRUE(editor.insertMode) << part;
    }
}

TEST_F(AbstractCommandLineRetrieverTest, TypingAtTheEndWritesEachCharacterOnce) {
    colNum = 80;
    std::string text;
    for (int i = 0; i < 100000; ++i) {
        text += static_cast<char>('a' + i % 26);
    }
    EXPECT_EQ(text, edit(text + "<lf>"));
    const std::size_t wraps = text.size() / 80;
    EXPECT_EQ(drawn.size(), text.size() + wraps * (80 + 1) * left.size());
}

TEST_F(AbstractCommandLineRetrieverTest, LongLineCanBeEditedAtItsStart) {
    const std::string text(20000, 'x');
    EXPECT_EQ("a" + text.substr(1) + "c", edit(text + "<home>ab<bs><del><end>c<lf>"));
}

TEST_F(AbstractCommandLineRetrieverTest, InputThatIsNoTerminalLeavesTheRestToOthers) {
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    UniqueFd readEnd(ends[0]);
    UniqueFd writeEnd(ends[1]);
    ASSERT_EQ(8, write(writeEnd.get(), "one\ntwo\n", 8));
    std::string first;
    {
        const RedirectedFd input(STDIN_FILENO, readEnd.get());
        CapturedOutput output;
        first = editor.getCommandLine();
    }
    EXPECT_EQ("one", first);
    char rest[16];
    ASSERT_EQ(4, read(readEnd.get(), rest, sizeof rest));
    EXPECT_EQ("two\n", std::string(rest, 4));
}

TEST_F(AbstractCommandLineRetrieverTest, SizeIsTheDefaultWithoutATerminal) {
    rowNum = 3;
    colNum = 4;
    const TypedInput input("");
    AbstractCommandLineRetriever::handleWindowSizeChange(SIGWINCH);
    EXPECT_EQ(25, rowNum);
    EXPECT_EQ(80, colNum);
}

TEST_F(AbstractCommandLineRetrieverTest, StartsAsStated) {
    EXPECT_TRUE(editor.insertMode);
    EXPECT_EQ(0u, editor.cursorPos);
    EXPECT_EQ(0, editor.cursorIndex);
    EXPECT_EQ("", editor.line.str());
    EXPECT_EQ(25, rowNum);
    EXPECT_EQ(80, colNum);
    EXPECT_EQ(2u, sizeof rowNum);
}

TEST_F(AbstractCommandLineRetrieverTest, SizeOfTheTerminalIsTakenOver) {
    int master = -1;
    int terminal = -1;
    ASSERT_EQ(0, ::openpty(&master, &terminal, nullptr, nullptr, nullptr));
    const UniqueFd ends[] = {UniqueFd(master), UniqueFd(terminal)};
    const StandardInput input(terminal);
    for (const auto& [size, rows, columns] :
         {std::tuple<winsize, int, int>{{40, 132, 0, 0}, 40, 132},
          {{0, 132, 0, 0}, 25, 132},
          {{40, 0, 0, 0}, 40, 80},
          {{0, 0, 0, 0}, 25, 80}}) {
        ASSERT_EQ(0, ::ioctl(master, TIOCSWINSZ, &size));
        AbstractCommandLineRetriever::handleWindowSizeChange(SIGWINCH);
        EXPECT_EQ(rowNum, rows);
        EXPECT_EQ(colNum, columns);
    }
}

TEST_F(AbstractCommandLineRetrieverTest, ReadingListensForResizes) {
    ::signal(SIGWINCH, SIG_DFL);
    edit("<lf>");
    struct sigaction installed = {};
    ASSERT_EQ(0, ::sigaction(SIGWINCH, nullptr, &installed));
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

class TypedLineOnScreen : public AbstractCommandLineRetrieverTest,
                          public ::testing::WithParamInterface<Typed> {};

TEST_P(TypedLineOnScreen, IsWhatTheScreenShowed) {
    EXPECT_EQ(GetParam().line, edit(GetParam().keys + "<lf>"));
    EXPECT_EQ(GetParam().bells, std::count(drawn.begin(), drawn.end(), '\a'));
    PlainScreen screen(200, 80);
    screen.take(drawn);
    EXPECT_EQ(GetParam().line, screen.text());
}

INSTANTIATE_TEST_SUITE_P(
    Keys, TypedLineOnScreen,
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

TEST_F(AbstractCommandLineRetrieverTest, InsertModeLastsBeyondTheLine) {
    edit("<ins><lf>");
    EXPECT_FALSE(editor.insertMode);
    EXPECT_EQ("Xbc", edit("abc<home>X<lf>"));
}

// The question itself goes to terminals only; the answer is taken wherever it comes from.
TEST_F(AbstractCommandLineRetrieverTest, WrapOnTheLastRowScrolls) {
    for (const auto& [reply, scrolls] : {std::pair<std::string, bool>{"<esc>[25;1R", true},
                                         std::pair<std::string, bool>{"<esc>[24;1R", false}}) {
        EXPECT_EQ(edit(times(80, "m") + reply + "z<lf>"), times(80, "m") + "z");
        EXPECT_EQ(drawn, times(80, "m") + times(80, keys::left) + keys::down +
                             (scrolls ? "\n" : "") + "z");
    }
}

TEST_F(AbstractCommandLineRetrieverTest, EditsAcrossTheWrap) {
    const std::string text = times(20, "0123456789");
    std::string expected = text;
    expected.insert(75, "X");
    expected.erase(79, 3);
    // 125 to the left of the end, one in, three on, three out.
    EXPECT_EQ(expected, edit(text + times(125, "<left>") + "X" + times(3, "<right>") +
                             "<del><del><del><lf>"));
    EXPECT_EQ(0, std::count(drawn.begin(), drawn.end(), '\a'));
    PlainScreen screen(10, 80);
    screen.take(drawn);
    EXPECT_EQ(expected, screen.text());
    EXPECT_EQ(79, screen.row() * 80 + screen.column());
}

}  // namespace
