#include <gtest/gtest.h>

#include "KelshEnum.h"

TEST(KelshEnum, ValuesAreFixed) {
    EXPECT_EQ(0, BUILTIN);
    EXPECT_EQ(1, BUILTIN_OPT);
    EXPECT_EQ(2, SCRIPT);
    EXPECT_EQ(3, SCRIPT_OPT);
    EXPECT_EQ(4, DLLFUNCTION);
    EXPECT_EQ(5, DLLFUNCTION_OPT);
    EXPECT_EQ(0, MASTER);
    EXPECT_EQ(1, SLAVE);
    EXPECT_EQ(0, NO);
    EXPECT_EQ(1, INHERITANCE);
    EXPECT_EQ(2, ONCE);
    EXPECT_EQ(3, EACH);
}

TEST(KelshEnum, ResolvesConfirmKeywordsInAnyCase) {
    EXPECT_EQ(NO, KelshEnum::resolveConformType("NO"));
    EXPECT_EQ(INHERITANCE, KelshEnum::resolveConformType("INHERITANCE"));
    EXPECT_EQ(ONCE, KelshEnum::resolveConformType("once"));
    EXPECT_EQ(EACH, KelshEnum::resolveConformType("Each"));
}

TEST(KelshEnum, AnyOtherConfirmKeywordMeansNo) {
    EXPECT_EQ(NO, KelshEnum::resolveConformType(""));
    EXPECT_EQ(NO, KelshEnum::resolveConformType("YES"));
    EXPECT_EQ(NO, KelshEnum::resolveConformType(" EACH"));
}
