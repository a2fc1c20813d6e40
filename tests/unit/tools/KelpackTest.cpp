#include <fstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CUtil.h"
#include "TempDir.h"
#include "TestPaths.h"
#include "ToolPackage.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

// Drives the program itself, in a directory with two tools and a key.
class Kelpack : public testing::Test {
protected:
    void SetUp() override {
        toolpackage::ToolKey::createFile(directory.file("key"));
        std::ofstream(directory.file("one")) << "echo one\n";
        std::ofstream(directory.file("two")) << std::string(100000, 'x');
    }

    int run(const std::string& arguments) {
        output.clear();
        return CUtil::exec_cmd("cd " + directory.path() + " && " KELSH_BINARY_DIR "/bin/kelpack " +
                                   arguments + " </dev/null",
                               &output, &output);
    }

    TempDir directory;
    std::string output;
};

TEST_F(Kelpack, PacksListsAndVerifies) {
    EXPECT_EQ(0, run("pack --key key one two"));
    EXPECT_EQ("one.enc\ntwo.enc\n", output);
    EXPECT_EQ(0, run("list one.enc two.enc"));
    EXPECT_EQ("one.enc: one, 9 bytes, 1 chunk\ntwo.enc: two, 100000 bytes, 2 chunks\n", output);
    EXPECT_EQ(0, run("verify --key key one.enc two.enc"));
    EXPECT_EQ("one.enc: OK\ntwo.enc: OK\n", output);
}

TEST_F(Kelpack, PacksIntoAnotherDirectory) {
    EXPECT_EQ(0, run("keygen ./key2"));
    EXPECT_EQ(0, CUtil::exec_cmd("mkdir " + directory.file("out"), nullptr));
    EXPECT_EQ(0, run("pack --output out --key key2 -- one"));
    EXPECT_EQ(0, run("verify out/one.enc --key key2"));
    EXPECT_EQ("out/one.enc: OK\n", output);
    EXPECT_FALSE(CUtil::isFileExisted(directory.file("one.enc")));
}

TEST_F(Kelpack, GoesOnAfterAFileThatFails) {
    EXPECT_EQ(1, run("pack --key key absent one"));
    EXPECT_THAT(output, HasSubstr("absent\": cannot be opened: No such file or directory"));
    EXPECT_THAT(output, HasSubstr("one.enc\n"));
    EXPECT_EQ(1, run("verify --key key one one.enc absent.enc"));
    EXPECT_THAT(output, HasSubstr("\"one\" is not the name of a package"));
    EXPECT_THAT(output, HasSubstr("one.enc: OK"));
    EXPECT_THAT(output, HasSubstr("absent.enc: cannot be opened"));
    EXPECT_EQ(1, run("list one"));
    EXPECT_THAT(output, EndsWith("one: is not a packaged tool\n"));
}

TEST_F(Kelpack, RefusesAKeyThatOthersMayRead) {
    EXPECT_EQ(0, CUtil::exec_cmd("chmod 640 " + directory.file("key"), nullptr));
    EXPECT_EQ(1, run("pack --key key one"));
    EXPECT_THAT(output, HasSubstr("its mode must be 0600"));
    EXPECT_FALSE(CUtil::isFileExisted(directory.file("one.enc")));
}

TEST_F(Kelpack, NeverReplacesAKey) {
    EXPECT_EQ(1, run("keygen key"));
    EXPECT_THAT(output, HasSubstr("File exists"));
}

TEST_F(Kelpack, ExplainsWrongUsageWithStatusTwo) {
    for (const char* arguments :
         {"", "unpack one.enc", "pack one", "pack --key", "pack --key key",
          "verify --output x one.enc", "list", "keygen a b", "keygen --key x a"}) {
        EXPECT_EQ(2, run(arguments)) << arguments;
        EXPECT_THAT(output, HasSubstr("Usage: kelpack keygen FILE")) << arguments;
    }
}

TEST_F(Kelpack, TellsHelpAndVersion) {
    EXPECT_EQ(0, run("--help"));
    EXPECT_THAT(output, StartsWith("Usage: kelpack"));
    EXPECT_THAT(output, HasSubstr("Exit status: 0 all done"));
    EXPECT_EQ(0, run("--version"));
    EXPECT_THAT(output, StartsWith("kelpack 1."));
}

TEST_F(Kelpack, FailsWhenItsOutputCannotBeWritten) {
    EXPECT_EQ(1, run("pack --key key one >/dev/null && " KELSH_BINARY_DIR
                     "/bin/kelpack list one.enc >/dev/full"));
    EXPECT_THAT(output, HasSubstr("cannot write to standard output"));
}

}  // namespace
