#include <csignal>
#include <functional>
#include <sys/ioctl.h>

#include <gtest/gtest.h>
#include <pty.h>

#include "AbstractCommandLineRetriever.h"
#include "EditorKeys.h"
#include "StandardStreams.h"

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
    EXPECT_EQ(writtenBy([&] { editor.putUp(); }), "\x1b[A");
    EXPECT_EQ(writtenBy([&] { editor.putDown(); }), "\x1b[B");
    EXPECT_EQ(writtenBy([&] { editor.putRight(); }), "\x1b[C");
    EXPECT_EQ(writtenBy([&] { editor.putLeft(); }), "\x1b[D");
    EXPECT_EQ(writtenBy([&] { editor.putEnter(); }), "\n");
    EXPECT_EQ(writtenBy([&] { editor.putSpace(); }), " ");
    EXPECT_EQ(writtenBy([&] { editor.putBeep(); }), "\a");
}

TEST_F(AbstractCommandLineRetrieverTest, PlaceholdersNameTheirKeys) {
    EXPECT_EQ(writtenBy([&] { editor.upPressed(); }), "Up\n");
    EXPECT_EQ(writtenBy([&] { editor.downPressed(); }), "Down\n");
    EXPECT_EQ(writtenBy([&] { editor.tabPressed(); }), "Tab\n");
}

TEST_F(AbstractCommandLineRetrieverTest, MovingRightWrapsAtEveryMultipleOfTheWidth) {
    unsigned int pos = 78;
    EXPECT_EQ(writtenBy([&] { editor.moveRightInConsole(&pos); }), "");
    EXPECT_EQ(pos, 79U);
    EXPECT_EQ(writtenBy([&] { editor.moveRightInConsole(&pos); }), times(80, left) + down);
    EXPECT_EQ(pos, 80U);
    pos = 159;
    EXPECT_EQ(writtenBy([&] { editor.moveRightInConsole(&pos); }), times(80, left) + down);
    EXPECT_EQ(pos, 160U);
}

TEST_F(AbstractCommandLineRetrieverTest, MovingRightFollowsTheCurrentWidth) {
    colNum = 3;
    unsigned int pos = 2;
    EXPECT_EQ(writtenBy([&] { editor.moveRightInConsole(&pos); }), left + left + left + down);
    colNum = 1;
    EXPECT_EQ(writtenBy([&] { editor.moveRightInConsole(&pos); }), left + down);
    EXPECT_EQ(pos, 4U);
}

TEST_F(AbstractCommandLineRetrieverTest, MovingLeftClimbsAtTheFirstColumn) {
    unsigned int pos = 81;
    EXPECT_EQ(writtenBy([&] { editor.moveIndexLeftInConsole(&pos); }), left);
    EXPECT_EQ(pos, 80U);
    EXPECT_EQ(writtenBy([&] { editor.moveIndexLeftInConsole(&pos); }), times(80, right) + up);
    EXPECT_EQ(pos, 79U);
}

TEST_F(AbstractCommandLineRetrieverTest, MovingTakesNull) {
    EXPECT_EQ(writtenBy([&] {
                  editor.moveIndexLeftInConsole(nullptr);
                  editor.moveRightInConsole(nullptr);
              }),
              "");
}

TEST_F(AbstractCommandLineRetrieverTest, MovingLeftTakesZeroForAFirstColumnToo) {
    unsigned int pos = 0;
    EXPECT_EQ(times(80, right) + up, writtenBy([&] { editor.moveIndexLeftInConsole(&pos); }));
    EXPECT_EQ(0U - 1U, pos);
}

TEST_F(AbstractCommandLineRetrieverTest, EraseBlanksCellByCell) {
    editor.cursorPos = 3;
    EXPECT_EQ(writtenBy([&] { editor.erase(2); }), left + blankBack + left + blankBack);
    EXPECT_EQ(editor.cursorPos, 1U);
    editor.cursorPos = 80;
    EXPECT_EQ(writtenBy([&] { editor.erase(1); }), times(80, right) + up + blankBack);
    EXPECT_EQ(editor.cursorPos, 79U);
    EXPECT_EQ(writtenBy([&] { editor.erase(0); }), "");
}

TEST_F(AbstractCommandLineRetrieverTest, KeyInAppendsWithoutDrawing) {
    EXPECT_EQ(writtenBy([&] {
                  editor.keyIn("abc");
                  editor.keyIn("def");
              }),
              "");
    EXPECT_EQ(editor.line.str(), "abcdef");
    EXPECT_EQ(edit("g<lf>"), "abcdefg");
}

TEST_F(AbstractCommandLineRetrieverTest, StartsInInsertMode) {
    EXPECT_TRUE(editor.insertMode);
    EXPECT_EQ(editor.cursorPos, 0U);
    EXPECT_EQ(editor.cursorIndex, 0);
}

TEST_F(AbstractCommandLineRetrieverTest, DrawsTypedTextAndLeavesTheLineFeedToTheCaller) {
    EXPECT_EQ(edit("list -a<lf>"), "list -a");
    EXPECT_EQ(drawn, "list -a");
    EXPECT_EQ(editor.resets, 1);
    EXPECT_FALSE(editor.isEndOfInput());
}

TEST_F(AbstractCommandLineRetrieverTest, EachLineStartsEmpty) {
    EXPECT_EQ(edit("first<left><left><lf>"), "first");
    EXPECT_EQ(editor.line.str(), "");
    EXPECT_EQ(edit("2<lf>"), "2");
    EXPECT_EQ(drawn, "2");
}

TEST_F(AbstractCommandLineRetrieverTest, FillingTheLastColumnGoesToTheNextScreenLine) {
    const std::string full(80, 'x');
    EXPECT_EQ(edit(full + "<lf>"), full);
    EXPECT_EQ(drawn, full + times(80, left) + down);
    EXPECT_EQ(edit(full.substr(1) + "<lf>"), full.substr(1));
    EXPECT_EQ(drawn, full.substr(1));
}

TEST_F(AbstractCommandLineRetrieverTest, BackspaceAtTheStartSoundsTheBell) {
    EXPECT_EQ(edit("<bs><lf>"), "");
    EXPECT_EQ(drawn, bell);
    EXPECT_EQ(edit("ab<left><left><bs><lf>"), "ab");
    EXPECT_EQ(drawn, "ab" + left + left + bell);
}

TEST_F(AbstractCommandLineRetrieverTest, DeleteAtTheEndSoundsTheBell) {
    EXPECT_EQ(edit("<del><lf>"), "");
    EXPECT_EQ(drawn, bell);
    EXPECT_EQ(edit("ab<del><lf>"), "ab");
    EXPECT_EQ(drawn, "ab" + bell);
}

TEST_F(AbstractCommandLineRetrieverTest, BackspaceAtTheEndBlanksOneCell) {
    EXPECT_EQ(edit("abc<bs><lf>"), "ab");
    EXPECT_EQ(drawn, "abc" + left + " " + left);
}

TEST_F(AbstractCommandLineRetrieverTest, BackspaceInsideRedrawsTheRest) {
    EXPECT_EQ(edit("abcd<left><left><bs><lf>"), "acd");
    EXPECT_EQ(drawn, "abcd" + left + left + left + " " + left + "cd " + times(3, left));
}

TEST_F(AbstractCommandLineRetrieverTest, DeleteInsideRedrawsTheRest) {
    EXPECT_EQ(edit("abcd<left><left><del><lf>"), "abd");
    EXPECT_EQ(drawn, "abcd" + left + left + "d " + left + left);
}

TEST_F(AbstractCommandLineRetrieverTest, InsertingInsideRedrawsTheRest) {
    EXPECT_EQ(edit("ac<left>b<lf>"), "abc");
    EXPECT_EQ(drawn, "ac" + left + "bc" + left);
}

TEST_F(AbstractCommandLineRetrieverTest, InsertKeyTogglesOverwriting) {
    EXPECT_EQ(edit("abcd<left><left><left><ins>XY<ins>Z<lf>"), "aXYZd");
    EXPECT_EQ(drawn, "abcd" + times(3, left) + "XY" + "Zd" + left);
    EXPECT_TRUE(editor.insertMode);
}

TEST_F(AbstractCommandLineRetrieverTest, OverwritingGoesOnBehindTheEnd) {
    EXPECT_EQ(edit("ab<left><ins>XYZ<lf>"), "aXYZ");
    EXPECT_FALSE(editor.insertMode);
}

TEST_F(AbstractCommandLineRetrieverTest, LeftAndRightStopAtBothEnds) {
    EXPECT_EQ(edit("<left><right>ab<right><left><left><left><right>x<lf>"), "axb");
    EXPECT_EQ(drawn, "ab" + left + left + right + "xb" + left);
}

TEST_F(AbstractCommandLineRetrieverTest, HomeAndEndMoveCharacterByCharacter) {
    EXPECT_EQ(edit("abc<home>x<end>y<lf>"), "xabcy");
    EXPECT_EQ(drawn, "abc" + times(3, left) + "xabc" + times(3, left) + times(3, right) + "y");
}

TEST_F(AbstractCommandLineRetrieverTest, UpDownAndTabReachTheVirtualOperations) {
    EXPECT_EQ(edit("<up><down><tab><lf>"), "");
    EXPECT_EQ(drawn, "Up\nDown\nTab\n" + bell);
}

TEST_F(AbstractCommandLineRetrieverTest, UnknownEscapeShowsItsSecondByte) {
    EXPECT_EQ(edit("<esc>xyab<lf>"), "ab");
    EXPECT_EQ(drawn, "c1=120\nab");
    EXPECT_EQ(edit("<esc><esc>[A<lf>"), "A");
    EXPECT_EQ(drawn, "c1=27\nA");
}

TEST_F(AbstractCommandLineRetrieverTest, UnlistedSequencesAreIgnored) {
    EXPECT_EQ(edit("a<esc>[H<esc>[F<esc>[Z<esc>OP<esc>OAb<lf>"), "ab");
    EXPECT_EQ(drawn, "ab");
}

TEST_F(AbstractCommandLineRetrieverTest, OtherControlBytesAreText) {
    const std::string control("a\0b\x03\x04\x08\r\x0c", 8);
    EXPECT_EQ(edit(control + "<lf>"), control);
    EXPECT_EQ(drawn, control);
}

TEST_F(AbstractCommandLineRetrieverTest, EveryByteAboveAsciiIsKept) {
    std::string all = "gr\xc3\xbc\xc3\x9f ";
    for (int c = 0x80; c <= 0xff; ++c) {
        all += static_cast<char>(c);
    }
    EXPECT_EQ(edit(all + "<lf>"), all);
}

TEST_F(AbstractCommandLineRetrieverTest, EndOfInputHandsOverWhatWasTyped) {
    EXPECT_EQ(edit("quit"), "quit");
    EXPECT_TRUE(editor.isEndOfInput());
    EXPECT_EQ(editor.resets, 1);
    EXPECT_EQ(edit(""), "");
    EXPECT_TRUE(editor.isEndOfInput());
    EXPECT_EQ(edit("<lf>"), "");
    EXPECT_FALSE(editor.isEndOfInput());
}

TEST_F(AbstractCommandLineRetrieverTest, EndOfInputInsideAnEscapeSequenceIsJustTheEnd) {
    for (const char* part : {"<esc>", "<esc>[", "<esc>O", "<esc>x", "<esc>[2", "<esc>[3"}) {
        EXPECT_EQ(edit("ab<left>" + std::string(part)), "ab") << part;
        EXPECT_EQ(drawn, "ab" + left) << part;
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
    EXPECT_EQ(edit(text + "<lf>"), text);
    const std::size_t wraps = text.size() / 80;
    EXPECT_EQ(drawn.size(), text.size() + wraps * (80 + 1) * left.size());
}

TEST_F(AbstractCommandLineRetrieverTest, LongLineCanBeEditedAtItsStart) {
    const std::string text(20000, 'x');
    EXPECT_EQ(edit(text + "<home>ab<bs><del><end>c<lf>"), "a" + text.substr(1) + "c");
}

TEST_F(AbstractCommandLineRetrieverTest, InputThatIsNoTerminalLeavesTheRestToOthers) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    UniqueFd readEnd(ends[0]);
    UniqueFd writeEnd(ends[1]);
    ASSERT_EQ(write(writeEnd.get(), "one\ntwo\n", 8), 8);
    std::string first;
    {
        const RedirectedFd input(STDIN_FILENO, readEnd.get());
        CapturedOutput output;
        first = editor.getCommandLine();
    }
    EXPECT_EQ(first, "one");
    char rest[16];
    ASSERT_EQ(read(readEnd.get(), rest, sizeof rest), 4);
    EXPECT_EQ(std::string(rest, 4), "two\n");
}

TEST_F(AbstractCommandLineRetrieverTest, SizeComesFromTheTerminalOnStandardInput) {
    int master = -1;
    int slave = -1;
    winsize size = {};
    size.ws_row = 33;
    size.ws_col = 99;
    ASSERT_EQ(openpty(&master, &slave, nullptr, nullptr, &size), 0);
    const UniqueFd masterEnd(master);
    const UniqueFd slaveEnd(slave);
    const RedirectedFd input(STDIN_FILENO, slave);
    AbstractCommandLineRetriever::handleWindowSizeChange(SIGWINCH);
    EXPECT_EQ(rowNum, 33);
    EXPECT_EQ(colNum, 99);

    size.ws_row = 2;
    size.ws_col = 0;
    ASSERT_EQ(ioctl(slave, TIOCSWINSZ, &size), 0);
    AbstractCommandLineRetriever::handleWindowSizeChange(SIGWINCH);
    EXPECT_EQ(rowNum, 2);
    EXPECT_EQ(colNum, 80);

    size.ws_row = 0;
    size.ws_col = 1;
    ASSERT_EQ(ioctl(slave, TIOCSWINSZ, &size), 0);
    AbstractCommandLineRetriever::handleWindowSizeChange(SIGWINCH);
    EXPECT_EQ(rowNum, 25);
    EXPECT_EQ(colNum, 1);
}

TEST_F(AbstractCommandLineRetrieverTest, SizeIsTheDefaultWithoutATerminal) {
    rowNum = 3;
    colNum = 4;
    const TypedInput input("");
    AbstractCommandLineRetriever::handleWindowSizeChange(SIGWINCH);
    EXPECT_EQ(rowNum, 25);
    EXPECT_EQ(colNum, 80);
}

TEST_F(AbstractCommandLineRetrieverTest, ReadingALineCatchesResizes) {
    std::signal(SIGWINCH, SIG_DFL);
    edit("<lf>");
    struct sigaction now = {};
    ASSERT_EQ(sigaction(SIGWINCH, nullptr, &now), 0);
    EXPECT_EQ(now.sa_handler, &AbstractCommandLineRetriever::handleWindowSizeChange);
}

}  // namespace
