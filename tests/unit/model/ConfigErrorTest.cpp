#include <gtest/gtest.h>

#include "ConfigError.h"

namespace {

constexpr auto kWarning = static_cast<CONFIGERROR_LEVEL>(1);

}  // namespace

TEST(ConfigError, PrintsItsLineUnlessItIsZero) {
    EXPECT_EQ("Line:12, text", ConfigError(12, "text").toString());
    EXPECT_EQ("text", ConfigError(0, "text").toString());
    EXPECT_EQ("Line:-1, text", ConfigError(-1, "text").toString());
    EXPECT_EQ("Line:7, ", ConfigError(7, "").toString());
    EXPECT_EQ("", ConfigError(0, "").toString());
}

TEST(ConfigError, KeepsWhatItWasMadeOfAndIsAnErrorByDefault) {
    const ConfigError warning(5, kWarning, "w");
    EXPECT_EQ(5, warning.getLine());
    EXPECT_EQ(1, warning.getLevel());
    EXPECT_EQ("w", warning.getErrorMessage());
    EXPECT_EQ(2, ConfigError(5, std::string("e")).getLevel());
}

TEST(ConfigError, LevelsHaveFixedNumbers) {
    EXPECT_EQ(1, CONFIG_WARNING);
    EXPECT_EQ(2, CONFIG_ERROR);
}
