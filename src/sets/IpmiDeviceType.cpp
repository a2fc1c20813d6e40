#include "IpmiDeviceType.h"

#include "Text.h"

namespace {

using Family = IpmiDeviceType::Family;

struct Row {
    const char* beginning;
    const char* label;
    Family family;
};

// In the order in which they are tried. The answer is in upper case by then, so the third row,
// with its lower-case letters, matches nothing: such boards have always been reported as unknown,
// and what is told apart here decides what gets flashed. It stays so, docs/compatibility.md.
constexpr Row kRows[] = {
    {"20 00 0E 40 02 7F 78 08", "Chassis module A", Family::kChassisModule},
    {"02 00 00 FF FE 00 00 00 08 09 0A 0B 0C 0D 0E 0F", "Module type 1 with KVM",
     Family::kModuleType1},
    {"30 30 30 31 5a 51 00 00 08 09 0A 0B 0C 0D 0E 0F", "Module type 1 without KVM",
     Family::kModuleType1},
    {"32 30 30 31 5A 51 00 00", "Module type 1 for blade", Family::kModuleType1},
    {"31 30 30 31 5A 51 00 00", "Management module of blade type 1", Family::kManagementModule},
    {"33 30 30 31 5A 51 00 00", "Management module of blade type 2", Family::kManagementModule},
    {"38 30 30 31 5A 51 00 00", "Management module of blade type 3", Family::kManagementModule},
    {"34 30 30 31 5A 51 00 00", "Module type 2 add-on", Family::kModuleType2},
    {"35 30 30 31 5A 51", "Module type 2 on-board", Family::kModuleType2},
    {"36 30 30 31 5A 51", "Module type 2 blade on-board", Family::kModuleType2},
    {"37 30 30 31 5A 51", "Module type 3", Family::kModuleType3},
};

}  // namespace

IpmiDeviceType IpmiDeviceType::identify(std::string answer) {
    Text::trim(answer);
    Text::toUpper(answer);
    if (answer.empty()) {
        return {Family::kNone, "No IPMI device"};
    }
    for (const Row& row : kRows) {
        if (Text::startsWith(answer, row.beginning)) {
            return {row.family, row.label};
        }
    }
    return {Family::kUnknown, "Unknown IPMI device"};
}
