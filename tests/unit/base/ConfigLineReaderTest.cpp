#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ConfigLineReader.h"

namespace {

struct Piece {
    std::string text;
    int number;
    bool newline;
    bool operator==(const Piece& other) const {
        return text == other.text && number == other.number && newline == other.newline;
    }
};

std::vector<Piece> readAll(std::string content) {
    const std::unique_ptr<FILE, int (*)(FILE*)> stream(
        content.empty() ? std::fopen("/dev/null", "r")
                        : fmemopen(content.data(), content.size(), "r"),
        &std::fclose);
    ConfigLineReader reader(stream.get());
    std::vector<Piece> pieces;
    std::string line;
    while (reader.next(line)) {
        pieces.push_back({line, reader.lineNumber(), reader.hadNewline()});
    }
    return pieces;
}

}  // namespace

TEST(ConfigLineReader, NumbersLinesFromOneAndRemovesOneNewline) {
    EXPECT_EQ((std::vector<Piece>{{"a", 1, true}, {"", 2, true}, {"b", 3, false}}),
              readAll("a\n\nb"));
    EXPECT_TRUE(readAll("").empty());
}

TEST(ConfigLineReader, KeepsACarriageReturn) {
    EXPECT_EQ((std::vector<Piece>{{"a=b\r", 1, true}}), readAll("a=b\r\n"));
}

TEST(ConfigLineReader, ALineOf510BytesAndItsNewlineIsOnePiece) {
    const std::string line(510, 'x');
    EXPECT_EQ((std::vector<Piece>{{line, 1, true}, {"y", 2, true}}), readAll(line + "\ny\n"));
}

TEST(ConfigLineReader, ALineOf511BytesLeavesItsNewlineAsAnEmptyPiece) {
    const std::string line(511, 'x');
    EXPECT_EQ((std::vector<Piece>{{line, 1, false}, {"", 2, true}, {"y", 3, true}}),
              readAll(line + "\ny\n"));
}

TEST(ConfigLineReader, CutsLongerLinesAfter511Bytes) {
    EXPECT_EQ((std::vector<Piece>{{std::string(511, 'x'), 1, false}, {"xx", 2, true}}),
              readAll(std::string(513, 'x') + "\n"));
}

TEST(ConfigLineReader, ANulByteEndsTheTextOfItsLine) {
    const std::vector<Piece> pieces = readAll(std::string("a\0b\nc\n", 6));
    ASSERT_EQ(2U, pieces.size());
    EXPECT_EQ("a", pieces[0].text);
    EXPECT_EQ("c", pieces[1].text);
}

TEST(ConfigLineReader, SkipsOnlyEmptyLinesAndThoseThatBeginWithAHash) {
    EXPECT_TRUE(ConfigLineReader::isSkipped(""));
    EXPECT_TRUE(ConfigLineReader::isSkipped("#x"));
    EXPECT_FALSE(ConfigLineReader::isSkipped(" #x"));
    EXPECT_FALSE(ConfigLineReader::isSkipped(" "));
}

TEST(ConfigLineReader, SplitsAtTheFirstEqualsSignAndTrimsNothing) {
    std::string key = "untouched";
    std::string value = "untouched";
    EXPECT_FALSE(ConfigLineReader::splitSetting("none", key, value));
    EXPECT_EQ("untouched", key);
    EXPECT_TRUE(ConfigLineReader::splitSetting(" k = v=w ", key, value));
    EXPECT_EQ(" k ", key);
    EXPECT_EQ(" v=w ", value);
    EXPECT_TRUE(ConfigLineReader::splitSetting("=v", key, value));
    EXPECT_EQ("", key);
    EXPECT_TRUE(ConfigLineReader::splitSetting("k=", key, value));
    EXPECT_EQ("", value);
}
