#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "CSimpleOptTempl.h"

namespace {

using Scanner = CSimpleOptTempl<char>;

const Scanner::Option kTable[] = {{0, "-n", Scanner::kRequiredSeparate},
                                  {0, "--node", Scanner::kRequiredSeparate},
                                  {1, "-v", Scanner::kNone},
                                  {-1, nullptr, Scanner::kNone}};

// "id=argument" per option found, with "!" for an option whose argument is missing.
std::string scan(std::vector<const char*> words) {
    words.insert(words.begin(), "");
    std::string found;
    Scanner scanner(static_cast<int>(words.size()), words.data(), kTable);
    while (scanner.next()) {
        found += std::to_string(scanner.optionId());
        found += scanner.optionText();
        found += scanner.lastError() == Scanner::kSuccess ? "" : "!";
        found +=
            scanner.optionArgument() == nullptr ? "" : std::string("=") + scanner.optionArgument();
        found += " ";
    }
    return found;
}

}  // namespace

TEST(CSimpleOptTempl, FindsNothingAmongPlainWords) {
    EXPECT_EQ("", scan({}));
    EXPECT_EQ("", scan({"reset", "all"}));
}

TEST(CSimpleOptTempl, FindsOptionsAndWordsInAnyOrder) {
    EXPECT_EQ("0-n=a 1-v 0--node=b ", scan({"reset", "-n", "a", "all", "-v", "--node", "b"}));
}

TEST(CSimpleOptTempl, MatchesWholeWordsOnly) {
    EXPECT_EQ("", scan({"-na", "--nod", "--node=a", "-N", "-", "--"}));
}

TEST(CSimpleOptTempl, TakesTheFollowingWordWhateverItIs) {
    EXPECT_EQ("0-n=-v ", scan({"-n", "-v"}));
    EXPECT_EQ("0-n=-n ", scan({"-n", "-n"}));
    EXPECT_EQ("0-n= ", scan({"-n", ""}));
}

TEST(CSimpleOptTempl, ReportsAMissingArgument) {
    EXPECT_EQ("1-v 0--node! ", scan({"-v", "--node"}));
}

TEST(CSimpleOptTempl, LeavesTheProgramNameAlone) {
    const char* words[] = {"-v", "word"};
    EXPECT_FALSE(Scanner(2, words, kTable).next());
}

TEST(CSimpleOptTempl, IsAtNoOptionBeforeTheFirstAndAfterTheLast) {
    const char* words[] = {"", "-n"};
    Scanner scanner(2, words, kTable);
    EXPECT_EQ(-1, scanner.optionId());
    EXPECT_EQ(nullptr, scanner.optionText());
    EXPECT_TRUE(scanner.next());
    EXPECT_EQ(Scanner::kMissingArgument, scanner.lastError());
    EXPECT_FALSE(scanner.next());
    EXPECT_EQ(-1, scanner.optionId());
    EXPECT_EQ(nullptr, scanner.optionArgument());
    EXPECT_EQ(Scanner::kSuccess, scanner.lastError());
}
