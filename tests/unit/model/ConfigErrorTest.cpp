#include <gtest/gtest.h>

#include "ConfigError.h"

TEST(ConfigError, PrintsBareMessageForLineZero) {
    EXPECT_EQ("message", ConfigError(0, "message").toString());
}

TEST(ConfigError, PrintsLineNumberInFrontOfMessage) {
    EXPECT_EQ("Line:7, message", ConfigError(7, "message").toString());
    EXPECT_EQ("Line:-1, message", ConfigError(-1, "message").toString());
}

TEST(ConfigError, IsAnErrorUnlessToldOtherwise) {
    const ConfigError error(12, "message");
    EXPECT_EQ(12, error.getLine());
    EXPECT_EQ(CONFIG_ERROR, error.getLevel());
    EXPECT_EQ("message", error.getErrorMessage());
    EXPECT_EQ(CONFIG_WARNING, ConfigError(12, CONFIG_WARNING, "message").getLevel());
}

TEST(ConfigError, LevelsHaveFixedNumbers) {
    EXPECT_EQ(1, CONFIG_WARNING);
    EXPECT_EQ(2, CONFIG_ERROR);
}
