#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "SecretMask.h"

using secretmask::mask;

TEST(SecretMask, PasswordsOfIpmitoolAreHidden) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"ipmitool -H 1.2.3.4 -U root -P secret power on",
         "ipmitool -H 1.2.3.4 -U root -P *** power on"},
        {"/usr/bin/ipmitool -Psecret mc info", "/usr/bin/ipmitool -P*** mc info"},
        {"ipmitool -vvP secret mc info", "ipmitool -vvP *** mc info"},
        {"ipmitool -P 'se cret' mc info", "ipmitool -P *** mc info"},
        {"ipmitool -P \"se cret\" mc info", "ipmitool -P *** mc info"},
        {"ipmitool -P se\\ cret mc info", "ipmitool -P *** mc info"},
        {"ipmitool '-P' secret", "ipmitool '-P' ***"},
        {"ipmitool --password secret mc info", "ipmitool --password *** mc info"},
        {"ipmitool --password=secret mc info", "ipmitool --password=*** mc info"},
        {"ipmitool -k key -y 00ff mc info", "ipmitool -k *** -y *** mc info"},
        {"ipmitool mc info -U a -P secret", "ipmitool mc info -U a -P ***"},
        {"IPMI_PASSWORD=secret ipmitool -E mc info", "IPMI_PASSWORD=*** ipmitool -E mc info"},
        {"ipmitool user set password 2 secret", "ipmitool user set password 2 ***"},
        {"ipmitool user test 2 16 secret", "ipmitool user test 2 16 ***"},
        {"sudo ipmitool -P secret mc info; echo done", "sudo ipmitool -P *** mc info; echo done"},
        {"sh -c 'ipmitool -P secret mc info'", "sh -c 'ipmitool -P *** mc info'"},
        {"sh -c \"ipmitool -P 'secret' mc info\"", "sh -c 'ipmitool -P *** mc info'"},
        {"echo $(ipmitool -P secret mc info)", "echo $(ipmitool -P *** mc info)"}};
    for (const auto& entry : cases) {
        EXPECT_EQ(mask(entry.first), entry.second);
    }
}

TEST(SecretMask, OtherCommandsStayAsTheyAre) {
    for (const std::string& line :
         {std::string("echo -P secret"), std::string("ls -P x; cp -k a b"), std::string(),
          std::string("ipmitool mc info; mkdir -P x"),
          std::string("ipmitool -U user -H host sdr")}) {
        EXPECT_EQ(mask(line), line);
    }
}

TEST(SecretMask, NothingThatRunsCanHideBehindAnOption) {
    for (const std::string& line :
         {std::string("ipmitool -P $(reboot-now) mc"), std::string("ipmitool -P `reboot-now` mc"),
          std::string("ipmitool -P \"$(reboot-now)\" mc"), std::string("ipmitool -P x; reboot-now"),
          std::string("ipmitool -P x|reboot-now"), std::string("ipmitool -P x\nreboot-now"),
          std::string("ipmitool -P 'x\nreboot-now")}) {
        EXPECT_NE(mask(line).find("reboot-now"), std::string::npos) << mask(line);
    }
}

TEST(SecretMask, AnyBytesAreTaken) {
    std::string line = "ipmitool ";
    for (int i = 0; i < 100000; ++i) {
        line += static_cast<char>((i * 7919) % 251 + 1);
        line += i % 13 == 0 ? "\\'\"" : "";
    }
    EXPECT_FALSE(mask(line).empty());
    EXPECT_FALSE(mask("ipmitool " + std::string(100000, '\\')).empty());
    EXPECT_FALSE(mask("ipmitool -P").empty());
}
