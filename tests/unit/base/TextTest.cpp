#include <gtest/gtest.h>

#include "Text.h"

using Parts = std::vector<std::string>;

TEST(Text, StartsWithComparesTheBeginningOnly) {
    EXPECT_TRUE(Text::startsWith("save file x", "save file "));
    EXPECT_TRUE(Text::startsWith("same", "same"));
    EXPECT_TRUE(Text::startsWith("", ""));
    EXPECT_FALSE(Text::startsWith("sav", "save"));
    EXPECT_FALSE(Text::startsWith("a save", "save"));
}

TEST(Text, TrimmedLosesWhiteSpaceAtBothEnds) {
    EXPECT_EQ("a  b", Text::trimmed(" \t\r\n\v\fa  b \n"));
    EXPECT_EQ("", Text::trimmed(" \t "));
    EXPECT_EQ("\xa0", Text::trimmed("\xa0"));
}

TEST(Text, SplitKeepsEmptyParts) {
    EXPECT_EQ((Parts{"a", "", "b", ""}), Text::split("a,,b,", ','));
    EXPECT_EQ((Parts{""}), Text::split("", ','));
    EXPECT_EQ((Parts{"a b"}), Text::split("a b", ','));
}

TEST(Text, PrintableEscapesWhatIsNotPlainAscii) {
    EXPECT_EQ("plain text, 100%", Text::printable("plain text, 100%"));
    EXPECT_EQ("a\\nb\\rc\\td", Text::printable("a\nb\rc\td"));
    EXPECT_EQ("say \\\"hi\\\" \\\\", Text::printable("say \"hi\" \\"));
    EXPECT_EQ("\\x1b[31m\\x00\\x7f\\xc3\\xbc",
              Text::printable(std::string("\x1b[31m\0\x7f\xc3\xbc", 9)));
}

TEST(Text, PrintableCountsWhatItDoesNotShow) {
    EXPECT_EQ("xxxx...(6 more bytes)", Text::printable(std::string(10, 'x'), 4));
    EXPECT_EQ("xxxx", Text::printable("xxxx", 4));
}

TEST(Text, AppendsTwoHexadecimalDigits) {
    std::string text = "0x";
    Text::appendHex(text, '\x0f');
    Text::appendHex(text, '\xf0');
    EXPECT_EQ("0x0ff0", text);
}

TEST(Text, TellsUtf8FromOtherBytes) {
    for (const char* good :
         {"", "plain", "gr\xc3\xbc\xc3\x9f", "\xe2\x82\xac", "\xf0\x9f\x92\xbe"}) {
        EXPECT_TRUE(Text::isUtf8(good)) << good;
    }
    for (const char* bad : {"\xff", "\xc3", "\xc0\x80", "\xe0\x80\x80", "\xed\xa0\x80",
                            "\xf4\x90\x80\x80", "\x80", "a\xe2\x82"}) {
        EXPECT_FALSE(Text::isUtf8(bad)) << Text::printable(bad);
    }
    EXPECT_EQ(0U, Text::utf8Length("a", 1));
}

TEST(Text, NameFromOutsideIsOneWordThatImitatesNothing) {
    EXPECT_EQ("CN=master", Text::printableName("CN=master"));
    EXPECT_EQ("O=Data\\x20Centre,CN=a.b-c_d@e+f/g",
              Text::printableName("O=Data Centre,CN=a.b-c_d@e+f/g"));
    EXPECT_EQ("root\\x29\\x3a\\x20EXEC\\x20\\x22uptime\\x22",
              Text::printableName("root): EXEC \"uptime\""));
    EXPECT_EQ("\\x5cx20\\xc3\\xa4\\x0a", Text::printableName("\\x20\xc3\xa4\n"));
    EXPECT_EQ("abc...", Text::printableName("abcdef", 3));
}
