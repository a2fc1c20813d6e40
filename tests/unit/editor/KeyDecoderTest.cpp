#include <clocale>
#include <ostream>
#include <vector>

#include <gtest/gtest.h>

#include "KeyDecoder.h"

void PrintTo(const Key& key, std::ostream* out) {
    *out << "kind " << static_cast<int>(key.kind) << (key.control ? " ctrl" : "")
         << (key.alt ? " alt" : "") << " \"" << key.text << '"';
}

namespace {

using Kind = Key::Kind;
using Keys = std::vector<Key>;

Key key(Kind kind, bool control = false, bool alt = false) {
    return {kind, "", control, alt};
}
Key text(const std::string& character) {
    return {Kind::kCharacter, character, false, false};
}
Key control(const std::string& letter) {
    return {Kind::kCharacter, letter, true, false};
}
Key alt(const std::string& letter) {
    return {Kind::kCharacter, letter, false, true};
}
Key paste(const std::string& all) {
    return {Kind::kPaste, all, false, false};
}

class KeyDecoderTest : public ::testing::Test {
protected:
    KeyDecoderTest() { std::setlocale(LC_CTYPE, "C.UTF-8"); }
    ~KeyDecoderTest() override { std::setlocale(LC_CTYPE, "C"); }

    Keys typed(const std::string& bytes) {
        decoder.feed(bytes);
        return taken();
    }
    Keys taken() {
        Keys keys;
        while (const std::optional<Key> next = decoder.next()) {
            keys.push_back(*next);
        }
        return keys;
    }
    Keys after(int milliseconds) {
        time += std::chrono::milliseconds(milliseconds);
        decoder.idle();
        return taken();
    }

    KeyDecoder::Clock::time_point time;
    KeyDecoder decoder{TextCoding::kUtf8, [this] { return time; }};
};

struct Encoding {
    std::string bytes;
    Key pressed;
};

void PrintTo(const Encoding& encoding, std::ostream* out) {
    *out << ::testing::PrintToString(encoding.bytes);
}

class KeyEncoding : public KeyDecoderTest, public ::testing::WithParamInterface<Encoding> {};

// Whole, byte by byte, and between two characters that must stay what they are.
TEST_P(KeyEncoding, IsOneKeyHoweverItArrives) {
    const Keys expected = {GetParam().pressed};
    EXPECT_EQ(expected, typed(GetParam().bytes));
    Keys inPieces;
    for (const char byte : GetParam().bytes) {
        for (const Key& one : typed(std::string(1, byte))) {
            inPieces.push_back(one);
        }
    }
    EXPECT_EQ(expected, inPieces);
    EXPECT_EQ((Keys{text("x"), GetParam().pressed, text("y")}),
              typed("x" + GetParam().bytes + "y"));
    EXPECT_FALSE(decoder.due().has_value());
}

INSTANTIATE_TEST_SUITE_P(
    Terminals, KeyEncoding,
    ::testing::Values(
        Encoding{"\x1b[H", key(Kind::kHome)}, Encoding{"\x1b[1~", key(Kind::kHome)},
        Encoding{"\x1b[7~", key(Kind::kHome)}, Encoding{"\x1bOH", key(Kind::kHome)},
        Encoding{"\x1b[F", key(Kind::kEnd)}, Encoding{"\x1b[4~", key(Kind::kEnd)},
        Encoding{"\x1b[8~", key(Kind::kEnd)}, Encoding{"\x1bOF", key(Kind::kEnd)},
        Encoding{"\x1b[2~", key(Kind::kInsert)}, Encoding{"\x1b[3~", key(Kind::kDelete)},
        Encoding{"\x1b[A", key(Kind::kUp)}, Encoding{"\x1bOA", key(Kind::kUp)},
        Encoding{"\x1b[B", key(Kind::kDown)}, Encoding{"\x1bOB", key(Kind::kDown)},
        Encoding{"\x1b[C", key(Kind::kRight)}, Encoding{"\x1bOC", key(Kind::kRight)},
        Encoding{"\x1b[D", key(Kind::kLeft)}, Encoding{"\x1bOD", key(Kind::kLeft)},
        // With modifiers: xterm's, rxvt's, and Alt as ESC in front.
        Encoding{"\x1b[1;5D", key(Kind::kLeft, true)},
        Encoding{"\x1b[1;5C", key(Kind::kRight, true)}, Encoding{"\x1b[1;2H", key(Kind::kHome)},
        Encoding{"\x1b[3;5~", key(Kind::kDelete, true)},
        Encoding{"\x1b[1;3C", key(Kind::kRight, false, true)},
        Encoding{"\x1b[1;9C", key(Kind::kRight, false, true)},
        Encoding{"\x1bO5C", key(Kind::kRight, true)}, Encoding{"\x1bOc", key(Kind::kRight, true)},
        Encoding{"\x1bOd", key(Kind::kLeft, true)}, Encoding{"\x1b[d", key(Kind::kLeft)},
        Encoding{"\x1b[7^", key(Kind::kHome, true)}, Encoding{"\x1b[8$", key(Kind::kEnd)},
        Encoding{"\x1b\x1b[D", key(Kind::kLeft, false, true)},
        Encoding{"\x1b\x1bOC", key(Kind::kRight, false, true)},
        Encoding{"\x1b"
                 "b",
                 alt("b")},
        Encoding{"\x1b\x7f", key(Kind::kBackspace, false, true)},
        Encoding{"\x1b\x08", key(Kind::kBackspace, false, true)},
        Encoding{"\x1b\r", key(Kind::kEnter, false, true)}, Encoding{"\x7f", key(Kind::kBackspace)},
        Encoding{"\x08", key(Kind::kBackspace)}, Encoding{"\r", key(Kind::kEnter)},
        Encoding{"\n", key(Kind::kEnter)}, Encoding{"\x1bOM", key(Kind::kEnter)},
        Encoding{"\t", key(Kind::kTab)}, Encoding{"\x01", control("a")},
        Encoding{"\x1a", control("z")}, Encoding{"\x1f", control("_")},
        Encoding{"\xc3\xa9", text("\xc3\xa9")}, Encoding{"\xe4\xb8\x96", text("\xe4\xb8\x96")},
        Encoding{"\xf0\x9f\x98\x80", text("\xf0\x9f\x98\x80")},
        Encoding{"\x1b[200~a\nb\x1b[201~", paste("a\nb")},
        Encoding{"\x1b[200~\x1b[A\x1b[201~", paste("\x1b[A")},
        Encoding{"\x1b[200~\x1b[201~", paste("")}));

TEST_F(KeyDecoderTest, SwallowsWhatItDoesNotKnow) {
    for (const char* unknown :
         {"\x1b[5~", "\x1b[15~", "\x1bOP", "\x1b[24;80R", "\x1b[?1;2c", "\x1b[>41;330;0c", "\x1b[I",
          "\x1b[O", "\x1b[Z", "\x1b[[A", "\x1b[97;5u", "\x1b[27;5;97~", "\x1bOj", "\x1b]0;title\a",
          "\x1b]11;rgb:0/0/0\x1b\\", "\x1bP1$r0m\x1b\\", "\x1b[?2026;2$y",
          "\x1b[1;1;1;1;1;1;1;1;1;1;1;1;1;1;1;1;1;1;1;1;1H"}) {
        EXPECT_EQ((Keys{text("x"), text("y")}), typed(std::string("x") + unknown + "y"))
            << ::testing::PrintToString(unknown);
    }
}

TEST_F(KeyDecoderTest, EscapeAloneCountsAfterItsTime) {
    EXPECT_EQ(Keys{}, typed("\x1b"));
    ASSERT_TRUE(decoder.due().has_value());
    EXPECT_EQ(time + std::chrono::milliseconds(50), *decoder.due());
    EXPECT_EQ(Keys{}, after(49));
    EXPECT_EQ(Keys{key(Kind::kEscape)}, after(1));
    EXPECT_EQ(Keys{text("[")}, typed("["));
}

TEST_F(KeyDecoderTest, BytesThatAreReadLateBelongTogether) {
    EXPECT_EQ(Keys{}, typed("\x1b"));
    time += std::chrono::seconds(3);
    EXPECT_EQ(Keys{key(Kind::kUp)}, typed("[A"));
}

TEST_F(KeyDecoderTest, AltWithABracketIsNoSequence) {
    for (const char* begun : {"\x1b[", "\x1bO", "\x1b]", "\x1bP"}) {
        EXPECT_EQ(Keys{}, typed(begun));
        EXPECT_EQ(Keys{}, after(50));
        EXPECT_EQ(Keys{text("A")}, typed("A"));
    }
}

TEST_F(KeyDecoderTest, HalfASequenceIsGivenUpLater) {
    EXPECT_EQ(Keys{}, typed("\x1b[1;"));
    EXPECT_EQ(Keys{}, after(499));
    EXPECT_EQ(Keys{}, after(1));
    EXPECT_EQ(Keys{text("5")}, typed("5"));
}

TEST_F(KeyDecoderTest, ControlCharacterEndsASequence) {
    EXPECT_EQ((Keys{control("c"), text("D")}), typed("\x1b[1;5\x03"
                                                     "D"));
    EXPECT_EQ((Keys{key(Kind::kUp)}), typed("\x1b[1;5\x1b[A"));
    EXPECT_EQ((Keys{key(Kind::kEscape), control("c")}), typed("\x1b\x03"));
}

TEST_F(KeyDecoderTest, BytesThatAreNoTextBecomeTheReplacement) {
    const Key replacement = text("\xef\xbf\xbd");
    EXPECT_EQ((Keys{replacement, text("a")}), typed("\xff"
                                                    "a"));
    EXPECT_EQ((Keys{replacement, text("a")}), typed("\xc3"
                                                    "a"));
    EXPECT_EQ(Keys{}, typed("\xe4\xb8"));
    EXPECT_EQ(2U, (Keys{replacement, replacement}).size());
    EXPECT_FALSE(after(500).empty());
    KeyDecoder bytes(TextCoding::kBytes, [this] { return time; });
    bytes.feed("\xff");
    EXPECT_EQ(text("\xff"), bytes.next());
}

TEST_F(KeyDecoderTest, PasteWithoutItsEndMarkEndsAfterTwoSeconds) {
    EXPECT_EQ(Keys{}, typed("\x1b[200~one\ntwo\x1b[20"));
    EXPECT_EQ(Keys{}, after(1999));
    EXPECT_EQ(Keys{paste("one\ntwo")}, after(1));
    EXPECT_EQ(Keys{text("x")}, typed("x"));
}

TEST_F(KeyDecoderTest, PasteThatIsTooLongIsDroppedWhole) {
    const std::string fits(KeyDecoder::kMaxPasteBytes, 'p');
    EXPECT_EQ(Keys{paste(fits)}, typed("\x1b[200~" + fits + "\x1b[201~"));
    EXPECT_EQ((Keys{key(Kind::kLongPaste), text("x")}), typed("\x1b[200~" + fits + "p\x1b[201~x"));
}

}  // namespace
