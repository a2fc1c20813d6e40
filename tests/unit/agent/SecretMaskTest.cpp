#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "CException.h"
#include "SecretMask.h"
#include "TempDir.h"

using secretmask::mask;

TEST(SecretMask, PasswordsOfIpmitoolAreHidden) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"ipmitool -H 1.2.3.4 -U root -P secret power on",
         "ipmitool -H 1.2.3.4 -U root -P *** power on"},
        {"  /usr/bin/ipmitool -Psecret mc info", "  /usr/bin/ipmitool -P*** mc info"},
        {"ipmitool -vvP secret mc info", "ipmitool -vvP *** mc info"},
        {"ipmitool -P 'se \"$(c)\" ret' mc info", "ipmitool -P *** mc info"},
        {"ipmitool -P \"se cret\" mc info", "ipmitool -P *** mc info"},
        {"ipmitool -P'se cret' mc info", "ipmitool -P*** mc info"},
        {"ipmitool -P pa#ss~word! mc info", "ipmitool -P *** mc info"},
        {"ipmitool '-P' secret", "ipmitool '-P' ***"},
        {"ipmitool --password secret mc info", "ipmitool --password *** mc info"},
        {"ipmitool --password=secret mc info", "ipmitool --password=*** mc info"},
        {"ipmitool -k key -y 00ff mc info", "ipmitool -k *** -y *** mc info"},
        {"ipmitool mc info -U a -P secret", "ipmitool mc info -U a -P ***"},
        {"IPMI_PASSWORD=secret ipmitool -E mc info", "IPMI_PASSWORD=*** ipmitool -E mc info"},
        {"IPMI_PASSWORD='se cret' ipmitool -E mc", "IPMI_PASSWORD=*** ipmitool -E mc"},
        {"ipmitool user set password 2 secret", "ipmitool user set password 2 ***"},
        {"ipmitool -I open user test 2 16 secret", "ipmitool -I open user test 2 16 ***"},
        {"ipmitool lan set 1 password secret", "ipmitool lan set 1 password ***"}};
    for (const auto& entry : cases) {
        EXPECT_EQ(entry.second, mask(entry.first));
    }
}

TEST(SecretMask, OtherCommandsStayAsTheyAre) {
    for (const char* const line :
         {"echo -P secret", "ls -P x; cp -k a b", "", "ipmitool -U user -H host sdr", "ipmitool -P",
          "ipmitool lan set 1 ipsrc static", "echo ipmitool -P secret"}) {
        EXPECT_EQ(line, mask(line));
    }
}

// Each of them runs, or may run, something in the place of a password.
TEST(SecretMask, NothingButAPlainSingleCommandIsMasked) {
    for (const char* const line : {"ipmitool -P $(evil) mc",
                                   "ipmitool -P `evil` mc",
                                   "ipmitool -P \"$(evil)\" mc",
                                   "ipmitool -P x; evil",
                                   "ipmitool -P x|evil",
                                   "ipmitool -P x\nevil",
                                   "ipmitool -P 'x\nevil",
                                   "ipmitool -P 'x\nevil\n'",
                                   "true ipmitool # -P '\nevil\n: # '",
                                   "true ipmitool #-P evil",
                                   "ipmitool() { eval \"$2\"; }; ipmitool -P evil",
                                   "sh -c 'eval \"$3\"' ipmitool x -P evil",
                                   "sh -c 'ipmitool -P secret mc info'",
                                   "ipmitool -P <<evil",
                                   "ipmitool -P \\evil",
                                   "ipmitool -P e'vi'l",
                                   "ipmi'tool' -P evil",
                                   "'ipmitool' -P evil",
                                   "ipmitool -P /tmp/ev*",
                                   "ipmitool -P {evil,x}",
                                   "ipmitool -P ~evil",
                                   "ipmitool -P > evil",
                                   "(ipmitool -P evil)",
                                   "ipmitool -P evil &",
                                   "PATH=/tmp ipmitool -P evil",
                                   "LD_PRELOAD=/tmp/x.so ipmitool -P evil",
                                   "IPMI_PASSWORD=evil sh -c 'eval $IPMI_PASSWORD'",
                                   "/tmp/ipmitool -P evil",
                                   "./ipmitool -P evil",
                                   "myipmitool -P evil",
                                   "sudo ipmitool -P evil",
                                   "ipmitool -Q -P evil",
                                   "ipmitool --exec -P evil"}) {
        EXPECT_EQ(line, mask(line));
    }
}

// What the tool takes for the value of another option hides nothing behind it.
TEST(SecretMask, OptionsAreReadAsTheToolReadsThem) {
    EXPECT_EQ("ipmitool -H -P exec /tmp/evil", mask("ipmitool -H -P exec /tmp/evil"));
    EXPECT_EQ("ipmitool -P *** exec /tmp/evil", mask("ipmitool -P -P exec /tmp/evil"));
    EXPECT_EQ("ipmitool exec user set password evil", mask("ipmitool exec user set password evil"));
}

TEST(SecretMask, AnyBytesAreTaken) {
    std::string line = "ipmitool ";
    for (int i = 0; i < 100000; ++i) {
        line += static_cast<char>((i * 7919) % 251 + 1);
        line += i % 13 == 0 ? "\\'\"" : "";
    }
    EXPECT_EQ(line, mask(line));
    const std::string slashes = "ipmitool " + std::string(100000, '\\');
    EXPECT_EQ(slashes, mask(slashes));
    EXPECT_EQ("ipmitool -P *** mc", mask("ipmitool -P p\xc3\xa4ss mc"));
}

TEST(SecretMask, MaskedLineCarriesAnHmacThatCanBeMadeAnew) {
    const TempDir directory;
    const std::string key = directory.file("maskkey");
    std::ofstream(key) << std::string(32, 'k');
    ASSERT_EQ(0, ::chmod(key.c_str(), 0600));
    const secretmask::Shown shown = secretmask::show("ipmitool -P secret mc info", key);
    EXPECT_EQ("ipmitool -P *** mc info", shown.text);
    // printf %s 'ipmitool -P secret mc info' | openssl dgst -sha256 -mac HMAC -macopt
    // hexkey:6b6b...
    EXPECT_EQ("847a8931123d9cf3b04a32feaac8ecbd32531f1f9e7eb5fd859bf1ba36ec4fe3", shown.hmac);
    EXPECT_EQ(" (HMAC " + shown.hmac + ")", shown.suffix());
    const secretmask::Shown other = secretmask::show("ipmitool mc info", key);
    EXPECT_EQ("", other.hmac + other.suffix());
}

TEST(SecretMask, NothingIsMaskedWithoutAKey) {
    const secretmask::Shown shown = secretmask::show("ipmitool -P secret mc", "/nonexistent/key");
    EXPECT_EQ("ipmitool -P secret mc", shown.text);
    EXPECT_EQ("", shown.hmac);
}

TEST(SecretMask, KeyIsMadeOnceAndForItsOwnerAlone) {
    const TempDir directory;
    const std::string key = directory.file("maskkey");
    std::ofstream(key + ".new") << "half";
    secretmask::makeKey(key);
    struct stat made {};
    ASSERT_EQ(0, ::stat(key.c_str(), &made));
    EXPECT_EQ(mode_t{0600}, made.st_mode & 07777U);
    const std::string hmac = secretmask::show("ipmitool -P secret", key).hmac;
    EXPECT_EQ(64U, hmac.size());
    secretmask::makeKey(key);
    EXPECT_EQ(hmac, secretmask::show("ipmitool -P secret", key).hmac);
    EXPECT_FALSE(std::filesystem::exists(key + ".new"));
}

TEST(SecretMask, KeyThatIsNotFitIsRefused) {
    const TempDir directory;
    const std::string key = directory.file("maskkey");
    std::ofstream(key) << "short";
    ASSERT_EQ(0, ::chmod(key.c_str(), 0600));
    EXPECT_THROW(secretmask::makeKey(key), CException);
    EXPECT_THROW(secretmask::makeKey(directory.file("none/maskkey")), CException);
}
