#pragma once

#include <string>

// What kind of management controller answered Get System GUID.
struct IpmiDeviceType {
    enum class Family {
        kNone,     // nothing answered
        kUnknown,  // something answered that the table does not hold
        kChassisModule,
        kModuleType1,
        kModuleType2,
        kModuleType3,
        kManagementModule,
    };
    Family family = Family::kNone;
    std::string label;  // as shown to the user

    // answer: the bytes as ipmitool prints them, in either case and with any white space around.
    static IpmiDeviceType identify(std::string answer);
};
