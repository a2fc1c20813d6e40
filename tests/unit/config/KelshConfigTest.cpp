#include <filesystem>
#include <fstream>
#include <string>
#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ConfigErrorCollector.h"
#include "KelshConfig.h"
#include "TempDir.h"

namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using Interface = KelshConfig::Interface;

class KelshConfigTest : public ::testing::Test {
protected:
    KelshConfig read(const std::string& text) {
        std::ofstream(file) << text;
        EXPECT_EQ(0, ::chmod(file.c_str(), mode));
        errors.clear();
        return KelshConfig::read(file, &errors);
    }

    TempDir directory;
    const std::string file = directory.file("kelsh.cfg");
    mode_t mode = 0644;
    ConfigErrorCollector errors;
};

}  // namespace

TEST_F(KelshConfigTest, NoFileIsClassicAndNoFault) {
    EXPECT_EQ(Interface::kClassic, KelshConfig::read(file, &errors).interface);
    EXPECT_EQ(0, errors.getSize());
}

TEST_F(KelshConfigTest, InterfaceIsWhatTheFileSaysAndClassicWhenItDoesNot) {
    EXPECT_EQ(Interface::kClassic, read("").interface);
    EXPECT_EQ(Interface::kClassic, read("# nothing\n\n").interface);
    EXPECT_EQ(Interface::kClassic, read("INTERFACE=classic\n").interface);
    EXPECT_EQ(Interface::kModern, read("# which one\nINTERFACE=modern").interface);
    EXPECT_EQ(Interface::kModern, read("interface=modern\n").interface);
    EXPECT_EQ(0, errors.getSize());
}

TEST_F(KelshConfigTest, OtherKeysHaveTheirFirstValueUnlessGiven) {
    const KelshConfig first = read("INTERFACE=modern\n");
    EXPECT_EQ(KelshConfig::ExitStatus::kAny, first.exitStatus);
    EXPECT_EQ(KelshConfig::Choice::kAuto, first.fold);
    EXPECT_EQ(KelshConfig::Choice::kAuto, first.digest);
    EXPECT_TRUE(first.adHoc);
    const KelshConfig given = read("EXIT_STATUS=last\nFOLD=never\nDIGEST=always\nAD_HOC=no\n");
    EXPECT_EQ(KelshConfig::ExitStatus::kLast, given.exitStatus);
    EXPECT_EQ(KelshConfig::Choice::kNever, given.fold);
    EXPECT_EQ(KelshConfig::Choice::kAlways, given.digest);
    EXPECT_FALSE(given.adHoc);
    EXPECT_EQ(0, errors.getSize());
}

TEST_F(KelshConfigTest, WrongValueIsAnErrorThatNamesLineAndValues) {
    for (const char* value : {"", "Modern", "modern ", "new"}) {
        EXPECT_EQ(Interface::kClassic, read(std::string("#\nINTERFACE=") + value + "\n").interface);
        EXPECT_EQ(std::string("Line:2, INTERFACE cannot be \"") + value +
                      "\". Its values are: classic, modern\n",
                  errors.toString());
    }
    read("INTERFACE=modern\r\n");
    EXPECT_EQ("Line:1, INTERFACE cannot be \"modern\\r\". Its values are: classic, modern\n",
              errors.toString());
}

TEST_F(KelshConfigTest, LineWithoutAValueIsAnError) {
    read("INTERFACE\n");
    EXPECT_EQ("Line:1, \"INTERFACE\" is not KEY=VALUE\n", errors.toString(CONFIG_ERROR));
}

TEST_F(KelshConfigTest, UnknownKeyIsAWarning) {
    EXPECT_EQ(Interface::kModern, read("COLOUR=blue\nINTERFACE=modern\n=x\n").interface);
    EXPECT_EQ("Line:1, unknown key \"COLOUR\"\nLine:3, unknown key \"\"\n",
              errors.toString(CONFIG_WARNING));
    EXPECT_EQ(0, errors.getSize(CONFIG_ERROR));
}

TEST_F(KelshConfigTest, FileThatOthersCanWriteIsAnError) {
    for (const mode_t loose : {mode_t{0666}, mode_t{0664}, mode_t{0646}}) {
        mode = loose;
        read("INTERFACE=modern\n");
        EXPECT_THAT(errors.toString(CONFIG_ERROR),
                    AllOf(HasSubstr(file + " can be written by others"), HasSubstr("chmod")));
    }
}

TEST_F(KelshConfigTest, FileOfAnotherUserIsAnError) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can give files away";
    }
    read("INTERFACE=modern\n");
    ASSERT_EQ(0, errors.getSize());
    ASSERT_EQ(0, ::chown(file.c_str(), 12345, 0));
    KelshConfig::read(file, &errors);
    EXPECT_THAT(errors.toString(CONFIG_ERROR), HasSubstr(file));
}

TEST_F(KelshConfigTest, FileThatCannotBeReadIsAnError) {
    std::filesystem::create_directory(file);
    KelshConfig::read(file, &errors);
    EXPECT_EQ(file + " is no file\n", errors.toString(CONFIG_ERROR));
    std::filesystem::remove(file);
    std::filesystem::create_symlink(file, file);
    errors.clear();
    KelshConfig::read(file, &errors);
    EXPECT_THAT(errors.toString(CONFIG_ERROR), HasSubstr(file + " cannot be opened: "));
}
