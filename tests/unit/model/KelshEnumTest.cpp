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

TEST(KelshEnum, ResolvesTheFourWordsInAnyCaseAndNothingElse) {
    EXPECT_EQ(0, KelshEnum::resolveConformType("NO"));
    EXPECT_EQ(1, KelshEnum::resolveConformType("Inheritance"));
    EXPECT_EQ(2, KelshEnum::resolveConformType("once"));
    EXPECT_EQ(3, KelshEnum::resolveConformType(std::string("eAcH")));
    for (const char* other : {"", " once", "once ", "always", "2", "ONCES"}) {
        EXPECT_EQ(0, KelshEnum::resolveConformType(other)) << other;
    }
    KelshEnum instance;
    EXPECT_EQ(EACH, instance.resolveConformType("EACH"));
}
