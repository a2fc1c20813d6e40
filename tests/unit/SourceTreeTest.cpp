// Each class of the shell lives in a header and a source named after it, and is built.

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

namespace {

std::string contents(const std::string& path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

TEST(SourceTree, HoldsAHeaderAndASourceForEachClass) {
    const std::string source = KELSH_SOURCE_DIR "/src/";
    const std::string build = contents(source + "CMakeLists.txt");
    for (const std::string name : {"CShell",
                                   "CThreadWrapperOfCommand",
                                   "CCmdThreadResult",
                                   "CCommandExecutionContext",
                                   "CSystemEnvironment",
                                   "CShellCommandSet",
                                   "CShellCommand",
                                   "CCommandOption",
                                   "CmdStrWithOption",
                                   "CCommandDispatcher",
                                   "ConfigError",
                                   "ConfigErrorCollector",
                                   "KelshEnum",
                                   "AbstractCommandLineRetriever",
                                   "AutoHistoryCommandLineRetriever",
                                   "CCmdHistory",
                                   "CNode",
                                   "CNodeGroup",
                                   "CShellConfigReader",
                                   "CSSLConfig",
                                   "CShellExecutionContext",
                                   "CShellExecutionContextAutoCompleteAdapter",
                                   "CShellCommandSet_Basic",
                                   "CShellCommandSet_BIOSFW",
                                   "CShellCommandSet_FlashBIOS",
                                   "CShellCommandSet_IPMI",
                                   "CShellCommandSet_IPMIKCS",
                                   "CShellCommandSet_ipmifw",
                                   "CShellCommandSet_Mem",
                                   "CShellCommandSet_Node",
                                   "CShellCommandSet_HALO"}) {
        EXPECT_NE(contents(source + name + ".h").find(name), std::string::npos) << name;
        EXPECT_NE(contents(source + name + ".cpp").find(name), std::string::npos) << name;
        EXPECT_NE(build.find("    " + name + ".cpp\n"), std::string::npos) << name;
    }
}

TEST(SourceTree, HasNoEmptySource) {
    for (const char* folder : {"src", "runtime", "agent", "tools", "launcher"}) {
        for (const auto& entry :
             std::filesystem::directory_iterator(std::string(KELSH_SOURCE_DIR "/") + folder)) {
            if (entry.path().extension() == ".cpp") {
                EXPECT_GT(entry.file_size(), 40U) << entry.path();
            }
        }
    }
}

}  // namespace
