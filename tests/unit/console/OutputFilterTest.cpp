#include <gtest/gtest.h>

#include "OutputFilter.h"

TEST(OutputFilter, LeavesOrdinaryTextAlone) {
    const std::string text =
        "total 4\n\tfree\r\nGr\xc3\xbc\xc3\x9f \xe6\x97\xa5 \xf0\x9f\x98\x80 ~";
    EXPECT_EQ(text, escapeForTerminal(text));
    EXPECT_EQ("", escapeForTerminal(""));
}

TEST(OutputFilter, ShowsControlCharacters) {
    EXPECT_EQ("\\x1b[2J\\x07\\x08\\x7f\\x00",
              escapeForTerminal(std::string("\x1b[2J\x07\x08\x7f\0", 8)));
}

TEST(OutputFilter, KeepsACarriageReturnOnlyBeforeANewline) {
    EXPECT_EQ("a\r\nb\\x0dc\\x0d", escapeForTerminal("a\r\nb\rc\r"));
    EXPECT_EQ("\\x0d\r\n", escapeForTerminal("\r\r\n"));
}

TEST(OutputFilter, ShowsC1ControlsInBothForms) {
    EXPECT_EQ("\\xc2\\x9b2J", escapeForTerminal("\xc2\x9b\x32J"));
    EXPECT_EQ("\\x9b2J", escapeForTerminal("\x9b\x32J"));
    EXPECT_EQ("\xc2\xa0", escapeForTerminal("\xc2\xa0"));
}

TEST(OutputFilter, ShowsWhatIsNotUtf8) {
    EXPECT_EQ("\\xff\\xfe", escapeForTerminal("\xff\xfe"));
    EXPECT_EQ("\\xc0\\xaf", escapeForTerminal("\xc0\xaf"));           // overlong
    EXPECT_EQ("\\xe0\\x9f\\xbf", escapeForTerminal("\xe0\x9f\xbf"));  // overlong
    EXPECT_EQ("\\xed\\xa0\\x80", escapeForTerminal("\xed\xa0\x80"));  // surrogate
    EXPECT_EQ("\\xf4\\x90\\x80\\x80", escapeForTerminal("\xf4\x90\x80\x80"));
    EXPECT_EQ("\\xf0\\x8f\\xbf\\xbf", escapeForTerminal("\xf0\x8f\xbf\xbf"));
    EXPECT_EQ("\\xe2\\x82", escapeForTerminal("\xe2\x82"));  // cut off
    EXPECT_EQ("\\xe2\\x1b[A", escapeForTerminal("\xe2\x1b[A"));
}
