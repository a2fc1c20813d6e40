#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "CUtil.h"
#include "TempDir.h"
#include "TestPaths.h"

namespace {

// Root starts the programs from anywhere, also from a directory that somebody else may write to.
TEST(Launcher, LoadsNoLibraryFromTheWorkingDirectory) {
    const TempDir directory;
    for (const char* library : {"libstdc++.so.6", "libc.so.6", "libcrypto.so.3"}) {
        std::ofstream(directory.file(library)) << "not a library";
    }
    for (const std::string program : {"kelsh --help", "kelnode --help", "kelpack --help"}) {
        std::string output;
        CUtil::exec_cmd("cd " + directory.path() + " && KELSH_PATH=" + directory.path() +
                            " " KELSH_BINARY_DIR "/bin/" + program + " </dev/null",
                        &output, &output);
        EXPECT_EQ(std::string::npos, output.find("shared librar")) << program << ": " << output;
        EXPECT_NE(output, "") << program;
    }
}

}  // namespace
