#include <filesystem>
#include <fstream>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "CException.h"
#include "ResultFiles.h"
#include "TempDir.h"

namespace {

NodeOutcome answer(const std::string& node, const std::string& text) {
    NodeOutcome outcome;
    outcome.node = node;
    outcome.text = text;
    return outcome;
}

std::string contents(const std::string& name) {
    std::ifstream file(name);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

class ResultFilesTest : public testing::Test {
protected:
    TempDir dir;
    const std::string path = dir.path() + "/out";
};

TEST_F(ResultFilesTest, MakeADirectoryThatIsClosedToOthers) {
    const ResultFiles files(path);
    struct stat made {};
    ASSERT_EQ(0, ::stat(path.c_str(), &made));
    EXPECT_EQ(0700U, made.st_mode & 07777U);
}

TEST_F(ResultFilesTest, HoldWhatEachNodeAnswered) {
    const ResultFiles files(path);
    files.write(answer("n1", "one\n"));
    files.write(answer("n2", "two"));
    files.write(answer("n1", "new"));
    EXPECT_EQ("new", contents(path + "/n1.out"));
    EXPECT_EQ("two", contents(path + "/n2.out"));
    EXPECT_EQ(2, std::distance(std::filesystem::directory_iterator(path), {}));
}

TEST_F(ResultFilesTest, ReplaceALinkAndDoNotFollowIt) {
    const ResultFiles files(path);
    std::ofstream(dir.path() + "/other") << "kept";
    std::filesystem::create_symlink(dir.path() + "/other", path + "/n1.out");
    files.write(answer("n1", "new"));
    EXPECT_EQ("kept", contents(dir.path() + "/other"));
    EXPECT_EQ("new", contents(path + "/n1.out"));
}

TEST_F(ResultFilesTest, RefuseNamesThatLeaveTheDirectory) {
    const ResultFiles files(path);
    for (const std::string name : {"", ".", "..", "a/b", "../a", "a\nb", "a\x7f"}) {
        EXPECT_THROW(files.write(answer(name, "x")), CException) << name;
    }
    EXPECT_TRUE(std::filesystem::is_empty(path));
}

TEST_F(ResultFilesTest, SayWhichDirectoryCannotBeHad) {
    std::ofstream(dir.path() + "/file") << "x";
    try {
        const ResultFiles files(dir.path() + "/file");
        FAIL() << "a file was taken for a directory";
    } catch (const CException& failure) {
        EXPECT_EQ(dir.path() + "/file is not a directory", failure.getErrMsg());
    }
    EXPECT_THROW(ResultFiles(dir.path() + "/none/out"), CException);
}

}  // namespace
