// Each class of the shell lives in a header and a source named after it, and is built.

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "TestPaths.h"

namespace {

std::string contents(const std::string& path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// Where the classes are that sites and their tests name.
const std::map<std::string, std::vector<std::string>> kRooms{
    {"model",
     {"CShellCommandSet", "CShellCommand", "CCommandOption", "CmdStrWithOption",
      "CCommandDispatcher", "CCommandExecutionContext", "ConfigError", "ConfigErrorCollector",
      "KelshEnum", "CNode", "CNodeGroup", "CShellExecutionContext"}},
    {"config", {"CShellConfigReader", "CSSLConfig", "CSystemEnvironment"}},
    {"engine", {"CShell", "CThreadWrapperOfCommand", "CCmdThreadResult"}},
    {"editor",
     {"AbstractCommandLineRetriever", "AutoHistoryCommandLineRetriever", "CCmdHistory",
      "CShellExecutionContextAutoCompleteAdapter"}},
    {"sets",
     {"CShellCommandSet_Basic", "CShellCommandSet_BIOSFW", "CShellCommandSet_FlashBIOS",
      "CShellCommandSet_IPMI", "CShellCommandSet_IPMIKCS", "CShellCommandSet_ipmifw",
      "CShellCommandSet_Mem", "CShellCommandSet_Node", "CShellCommandSet_HALO"}},
};

TEST(SourceTree, HoldsAHeaderAndASourceForEachClass) {
    for (const auto& [room, names] : kRooms) {
        const std::string folder = KELSH_SOURCE_DIR "/src/" + room + "/";
        const std::string build = contents(folder + "CMakeLists.txt");
        for (const std::string& name : names) {
            EXPECT_NE(contents(folder + name + ".h").find(name), std::string::npos) << name;
            EXPECT_NE(contents(folder + name + ".cpp").find(name), std::string::npos) << name;
            EXPECT_NE(build.find("    " + name + ".cpp\n"), std::string::npos) << name;
        }
    }
}

TEST(SourceTree, HasNoEmptySource) {
    for (const char* folder : {"src", "runtime", "agent", "tools", "launcher"}) {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(
                 std::string(KELSH_SOURCE_DIR "/") + folder)) {
            if (entry.path().extension() == ".cpp") {
                EXPECT_GT(entry.file_size(), 40U) << entry.path();
            }
        }
    }
}

}  // namespace
