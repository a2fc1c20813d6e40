#include <gtest/gtest.h>

#include "IpmiDeviceType.h"

namespace {

using Family = IpmiDeviceType::Family;

struct Case {
    const char* answer;
    const char* label;
    Family family;
};

class IpmiDeviceTypeRow : public testing::TestWithParam<Case> {};

TEST_P(IpmiDeviceTypeRow, IsTold) {
    const IpmiDeviceType type = IpmiDeviceType::identify(GetParam().answer);
    EXPECT_EQ(GetParam().label, type.label);
    EXPECT_EQ(GetParam().family, type.family);
}

INSTANTIATE_TEST_SUITE_P(
    Table, IpmiDeviceTypeRow,
    testing::Values(
        Case{"20 00 0E 40 02 7F 78 08 00 00 00 00 00 00 00 00", "Chassis module A",
             Family::kChassisModule},
        Case{"02 00 00 FF FE 00 00 00 08 09 0A 0B 0C 0D 0E 0F", "Module type 1 with KVM",
             Family::kModuleType1},
        Case{"32 30 30 31 5A 51 00 00 08", "Module type 1 for blade", Family::kModuleType1},
        Case{"31 30 30 31 5A 51 00 00", "Management module of blade type 1",
             Family::kManagementModule},
        Case{"33 30 30 31 5A 51 00 00", "Management module of blade type 2",
             Family::kManagementModule},
        Case{"38 30 30 31 5A 51 00 00", "Management module of blade type 3",
             Family::kManagementModule},
        Case{"34 30 30 31 5A 51 00 00", "Module type 2 add-on", Family::kModuleType2},
        Case{"35 30 30 31 5A 51", "Module type 2 on-board", Family::kModuleType2},
        Case{"36 30 30 31 5A 51 FF", "Module type 2 blade on-board", Family::kModuleType2},
        Case{"37 30 30 31 5A 51 00", "Module type 3", Family::kModuleType3}));

TEST(IpmiDeviceType, NeverTellsTheRowWrittenInLowerCase) {
    for (const char* answer : {"30 30 30 31 5A 51 00 00 08 09 0A 0B 0C 0D 0E 0F",
                               "30 30 30 31 5a 51 00 00 08 09 0A 0B 0C 0D 0E 0F"}) {
        EXPECT_EQ("Unknown IPMI device", IpmiDeviceType::identify(answer).label);
    }
}

TEST(IpmiDeviceType, TrimsAndTakesEitherCase) {
    EXPECT_EQ("Module type 3", IpmiDeviceType::identify(" 37 30 30 31 5a 51 00 00\n").label);
    EXPECT_EQ("Chassis module A", IpmiDeviceType::identify("\n 20 00 0e 40 02 7f 78 08 \n").label);
}

TEST(IpmiDeviceType, SaysWhenNothingOrSomethingElseAnswered) {
    EXPECT_EQ("No IPMI device", IpmiDeviceType::identify("").label);
    EXPECT_EQ("No IPMI device", IpmiDeviceType::identify(" \n").label);
    EXPECT_EQ(Family::kNone, IpmiDeviceType::identify("").family);
    EXPECT_EQ("Unknown IPMI device", IpmiDeviceType::identify("37 30 30 31 5A").label);
    EXPECT_EQ(Family::kUnknown, IpmiDeviceType::identify("x 37 30 30 31 5A 51").family);
}

}  // namespace
