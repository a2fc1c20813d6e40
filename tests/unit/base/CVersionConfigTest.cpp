#include <fstream>

#include <gtest/gtest.h>

#include "CCannotOpenFileException.h"
#include "CVersionConfig.h"
#include "TempDir.h"

namespace {

class CVersionConfigTest : public testing::Test {
protected:
    std::string write(const std::string& text) {
        std::ofstream(directory.file("version.cfg")) << text;
        return directory.file("version.cfg");
    }
    TempDir directory;
};

}  // namespace

TEST_F(CVersionConfigTest, ReadsVersionAndBuild) {
    const CVersionConfig config(write("VERSION=1.2\nBUILD=345\n").c_str());
    EXPECT_EQ("1.2", config.getVersion());
    EXPECT_EQ("345", config.getBuild());
}

TEST_F(CVersionConfigTest, IgnoresCaseOfKeysCommentsAndOtherKeys) {
    const CVersionConfig config(
        write("# VERSION=9\n\nversion=2.0\nNAME=x\nnonsense\nBuild=7").c_str());
    EXPECT_EQ("2.0", config.getVersion());
    EXPECT_EQ("7", config.getBuild());
}

TEST_F(CVersionConfigTest, NamesAFileThatCanNotBeOpened) {
    try {
        const CVersionConfig config(directory.file("missing.cfg").c_str());
        FAIL();
    } catch (const CCannotOpenFileException& error) {
        EXPECT_NE(std::string::npos, error.getErrMsg().find("missing.cfg"));
        EXPECT_NE(std::string::npos, error.getErrMsg().find("No such file"));
    }
}

TEST_F(CVersionConfigTest, RefusesADirectoryAndNoNameAtAll) {
    EXPECT_THROW(CVersionConfig(directory.path().c_str()), CCannotOpenFileException);
    EXPECT_THROW(CVersionConfig(nullptr), CCannotOpenFileException);
}

TEST_F(CVersionConfigTest, WantsBothSettings) {
    EXPECT_THROW(CVersionConfig(write("VERSION=1\n").c_str()), CException);
    EXPECT_THROW(CVersionConfig(write("BUILD=1\n").c_str()), CException);
    EXPECT_THROW(CVersionConfig(write("").c_str()), CException);
}
