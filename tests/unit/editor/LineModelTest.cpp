#include <clocale>
#include <ostream>

#include <gtest/gtest.h>

#include "EditorKeys.h"
#include "KeyDecoder.h"
#include "LineModel.h"

namespace {

using Outcome = LineModel::Outcome;

class LineModelTest : public ::testing::Test {
protected:
    LineModelTest() { std::setlocale(LC_CTYPE, "C.UTF-8"); }
    ~LineModelTest() override { std::setlocale(LC_CTYPE, "C"); }

    // Keys as in EditorKeys.h; the outcome of the last one.
    Outcome press(const std::string& symbols) {
        decoder.feed(keys::typed(symbols));
        Outcome last = Outcome::kNothing;
        while (const std::optional<Key> key = decoder.next()) {
            last = model.press(*key, history);
        }
        return last;
    }
    // The text, with "|" where the cursor is.
    std::string shown() const {
        std::string text = model.text();
        return text.insert(model.cursor(), "|");
    }

    LineModel::History history;
    KeyDecoder decoder{TextCoding::kUtf8};
    LineModel model{TextCoding::kUtf8};
};

struct Edit {
    std::string keys;
    std::string shown;
    bool bell = false;
};

void PrintTo(const Edit& edit, std::ostream* out) {
    *out << edit.keys;
}

class LineEdit : public LineModelTest, public ::testing::WithParamInterface<Edit> {};

TEST_P(LineEdit, GivesTheLine) {
    const Outcome outcome = press(GetParam().keys);
    EXPECT_EQ(GetParam().shown, shown());
    EXPECT_EQ(outcome, GetParam().bell ? Outcome::kBell : Outcome::kNothing);
}

INSTANTIATE_TEST_SUITE_P(
    Keys, LineEdit,
    ::testing::Values(
        Edit{"abc", "abc|"}, Edit{"abc<home>X", "X|abc"}, Edit{"abc<^A>X<^E>Y", "XabcY|"},
        Edit{"abc<left><left><end>d", "abcd|"}, Edit{"abc<left><del>", "ab|"},
        Edit{"abc<del>", "abc|", true}, Edit{"<bs>", "|", true}, Edit{"abc<bs>", "ab|"},
        Edit{"abc<^B><^B><^F>", "ab|c"}, Edit{"abc<right>", "abc|", true},
        Edit{"abc<home><left>", "|abc", true}, Edit{"abc<home><ins>XY", "XY|c"},
        Edit{"abc<home><ins>X<ins>Y", "XY|bc"}, Edit{"ab<left><ins>XYZ", "aXYZ|"},
        Edit{"abc<home><^D>", "|bc"}, Edit{"abc<^D>", "abc|", true},
        // Words: letters and digits for Alt and Ctrl with arrows, blanks for Ctrl+W.
        Edit{"one two-three<esc>b", "one two-|three"},
        Edit{"one two-three<esc>b<esc>b<esc>b", "|one two-three"},
        Edit{"one two<home><esc>f", "one| two"}, Edit{"one two<home><esc>f<esc>f", "one two|"},
        Edit{"one two<esc>[1;5D", "one |two"}, Edit{"one two<home><esc>[1;5C", "one| two"},
        Edit{"one two-three<^W>", "one |"}, Edit{"one two-three<esc><bs>", "one two-|"},
        Edit{"one two<home><esc>d", "| two"}, Edit{"one two  <^W>", "one |"},
        Edit{"<^W>", "|", true}, Edit{"<^K>", "|", true},
        // Kills and what comes back.
        Edit{"one two<esc>b<^K><home><^Y>", "two|one "}, Edit{"one two<^U><^Y>!", "one two!|"},
        Edit{"a b c<^W><^W><^Y>", "a b c|"}, Edit{"a b<home><esc>d<esc>d<^Y>", "a b|"},
        Edit{"one<^U>two<^U><^Y><esc>y", "one|"}, Edit{"one<^U>two<^U><^Y><esc>y<esc>y", "two|"},
        Edit{"one<^U>x<esc>y", "x|", true}, Edit{"<^Y>", "|", true}, Edit{"ab<^T>", "ba|"},
        Edit{"abc<left><^T>", "acb|"}, Edit{"a<^T>", "a|", true},
        Edit{"abc<home><^T>", "|abc", true}, Edit{"abc<^G>", "abc|", true},
        Edit{"a<esc>[5~b<esc>OPc", "abc|"},
        // What a user sees as one sign is one.
        Edit{"\xc3\xa9\xe4\xb8\x96<bs>", "\xc3\xa9|"}, Edit{"xe\xcc\x81<left>", "x|e\xcc\x81"},
        Edit{"xe\xcc\x81<bs>", "x|"}, Edit{"xe\xcc\x81<home><right><del>", "x|"},
        Edit{"\xc3\xa4\xc3\xb6<^T>", "\xc3\xb6\xc3\xa4|"},
        Edit{"e<home>x<end>\xcc\x81<left>", "x|e\xcc\x81"}));

TEST_F(LineModelTest, TellsTheCallerWhatIsHisToDo) {
    EXPECT_EQ(Outcome::kLine, press("list<cr>"));
    EXPECT_EQ("list", model.text());
    EXPECT_EQ(Outcome::kComplete, press("<tab>"));
    EXPECT_EQ(Outcome::kSuspend, press("<^Z>"));
    EXPECT_EQ(Outcome::kClearScreen, press("<^L>"));
    EXPECT_EQ("list", model.text());
    EXPECT_EQ(Outcome::kInterrupt, press("<^C>"));
    EXPECT_EQ("", model.text());
    EXPECT_EQ(Outcome::kEndOfInput, press("<^D>"));
    EXPECT_EQ(Outcome::kBell, press("<esc><cr>")) << "a line must not run because ESC came first";
}

TEST_F(LineModelTest, PasteIsShownAndRunsNothing) {
    EXPECT_EQ(Outcome::kNothing, press("a<esc>[200~one\r\ntwo\tthree\x03\x1b[A<esc>[201~b"));
    EXPECT_EQ("aone\ntwo three[Ab|", shown());
    EXPECT_EQ(Outcome::kLine, press("<cr>"));
    EXPECT_EQ("aone\ntwo three[Ab", model.text());
}

TEST_F(LineModelTest, LineHasALimit) {
    const std::string most(LineModel::kMaxLineBytes, 'x');
    EXPECT_EQ(Outcome::kNothing, press("<esc>[200~" + most + "<esc>[201~"));
    EXPECT_EQ(Outcome::kBell, press("y"));
    EXPECT_EQ(most, model.text());
    EXPECT_EQ(Outcome::kLongPaste, press("<esc>[200~" + most + "y<esc>[201~"));
    EXPECT_EQ(most, model.text());
}

TEST_F(LineModelTest, UpAndDownLookForTheBeginning) {
    history = {"list node", "power off", "list group", "list group"};
    EXPECT_EQ(Outcome::kNothing, press("li<up>"));
    EXPECT_EQ("list group|", shown());
    press("<up>");
    EXPECT_EQ("list node|", shown());
    EXPECT_EQ(Outcome::kBell, press("<up>"));
    press("<down>");
    EXPECT_EQ("list group|", shown());
    press("<down>");
    EXPECT_EQ("li|", shown());
    EXPECT_EQ(Outcome::kBell, press("<down>"));
    press("<^U><up><up>");
    EXPECT_EQ("power off|", shown());
    press("<left><up>");
    EXPECT_EQ("power off|", shown().replace(shown().find('|'), 1, "") + "|")
        << "a moved cursor begins a new search";
}

TEST_F(LineModelTest, ControlPAndNStepThroughAll) {
    history = {"one", "two"};
    press("x<^P><^P>");
    EXPECT_EQ("one|", shown());
    press("<^N><^N>");
    EXPECT_EQ("x|", shown());
}

TEST_F(LineModelTest, SearchesBackwardsWhileTyping) {
    history = {"list node -n a", "power off", "list group"};
    press("own<^R>li");
    EXPECT_TRUE(model.isSearching());
    EXPECT_EQ("li", model.searched());
    EXPECT_EQ("|list group", shown());
    press("<^R>");
    EXPECT_EQ("|list node -n a", shown());
    EXPECT_EQ(Outcome::kBell, press("<^R>"));
    EXPECT_TRUE(model.searchFailed());
    press("<bs><bs>no");
    EXPECT_EQ("list |node -n a", shown());
    EXPECT_FALSE(model.searchFailed());
    EXPECT_EQ(Outcome::kNothing, press("<cr>")) << "takes the line and runs nothing";
    EXPECT_FALSE(model.isSearching());
    EXPECT_EQ(Outcome::kLine, press("<cr>"));
}

TEST_F(LineModelTest, SearchIsLeftWithOrWithoutItsLine) {
    history = {"power off"};
    press("own<^R>off<^G>");
    EXPECT_EQ("own|", shown());
    press("<^R>off<end>!");
    EXPECT_EQ("power off!|", shown());
    EXPECT_EQ(Outcome::kInterrupt, press("<^R>x<^C>"));
    EXPECT_EQ("|", shown());
    EXPECT_FALSE(model.isSearching());
    EXPECT_EQ(Outcome::kBell, press("<^R>zz"));
    EXPECT_TRUE(model.searchFailed());
}

TEST_F(LineModelTest, CompletionPutsTextBeforeTheCursor) {
    press("list no -x<left><left><left>");
    model.replaceBeforeCursor(5, "node");
    EXPECT_EQ("list node| -x", shown());
    model.replaceBeforeCursor(99, "!");
    EXPECT_EQ("list node!| -x", shown());
}

TEST_F(LineModelTest, ByteIsACharacterInTheCLocale) {
    LineModel bytes(TextCoding::kBytes);
    for (const char* character : {"\xc3", "\xa9"}) {
        bytes.press({Key::Kind::kCharacter, character, false, false}, history);
    }
    bytes.press({Key::Kind::kBackspace, "", false, false}, history);
    EXPECT_EQ("\xc3", bytes.text());
}

TEST_F(LineModelTest, SameKeysGiveTheSameLine) {
    LineModel copy = model;
    press("one two<^W>x");
    for (const char letter : std::string("one two")) {
        copy.press({Key::Kind::kCharacter, std::string(1, letter), false, false}, history);
    }
    copy.press({Key::Kind::kCharacter, "w", true, false}, history);
    copy.press({Key::Kind::kCharacter, "x", false, false}, history);
    EXPECT_EQ(copy.text(), model.text());
    EXPECT_EQ(copy.cursor(), model.cursor());
}

}  // namespace
