// Start-up: what is registered, read and named before the first command.
#include <pthread.h>
#include <thread>

#include <gtest/gtest.h>
#include <openssl/crypto.h>

#include "Observed.h"
#include "ScopedEnvironment.h"
#include "ScopedWorkingDirectory.h"
#include "ShellFixture.h"

namespace {

using StartUp = ShellFixture;

Words rootsOf(CShellExecutionContext& context) {
    Words names;
    for (const CShellCommandSet* set : context.getRootCommandSetList()) {
        names.push_back(set->getCommandSetName());
    }
    return names;
}

TEST_F(StartUp, BuiltInSetsComeFirstAndInThisOrder) {
    put("cmd.cfg",
        "[cmdset]\nname=tools\ndescription=D\n[cmd]\nname=hello\ndescription=D\ntype=SCRIPT\n"
        "destination=MASTER\ncmd=true\n");
    CShell shell;
    CShellExecutionContext context;
    std::list<std::string> words;
    EXPECT_EQ("", printedBy([&] { EXPECT_TRUE(shell.init(words, context)); }));
    EXPECT_EQ((Words{"BASIC", "biosfw", "r3biosfw", "ipmifw", "tools"}), rootsOf(context));
    EXPECT_EQ(context.getBasicCommandSet(), context.getRootCommandSetList().front());
    EXPECT_NE(context.getHostName(), "");
    EXPECT_EQ(std::string::npos, context.getHostName().find('\n'));
    EXPECT_EQ(home.path() + "/node.cfg", context.getNodeCfgFileName());
    EXPECT_EQ(home.path() + "/cmd.cfg", context.getCmdCfgFileName());
    EXPECT_EQ(home.path() + "/ssl_master.cfg", context.getSslCfgFileName());
}

TEST_F(StartUp, WithoutAnInstallPathNamesStayBare) {
    const ScopedEnvironment none("KELSH_PATH", nullptr);
    const ScopedWorkingDirectory there(home.path());
    CShell shell;
    CShellExecutionContext context;
    std::list<std::string> words;
    EXPECT_TRUE(shell.init(words, context));
    EXPECT_EQ("node.cfg", context.getNodeCfgFileName());
    EXPECT_EQ("ssl_master.cfg", context.getSslCfgFileName());
}

TEST_F(StartUp, FaultsOfTheConfigurationArePrintedOnce) {
    put("node.cfg", "[group]\ng=ghost\n");
    CShell shell;
    CShellExecutionContext context;
    std::list<std::string> words;
    bool good = true;
    const std::string printed = printedBy([&] { good = shell.init(words, context); });
    EXPECT_FALSE(good);
    EXPECT_EQ(0u, printed.find("Line:2, ")) << printed;
    EXPECT_NE(printed.find("ghost"), std::string::npos);
    EXPECT_EQ(printed.find("ghost"), printed.rfind("ghost")) << printed;
    EXPECT_EQ((Words{"BASIC", "biosfw", "r3biosfw", "ipmifw"}), rootsOf(context));
}

TEST_F(StartUp, ValidationCollectsAndPrintsNothing) {
    put("bad.cfg", "[group]\ng=ghost\ng=ghost\n");
    CShell shell;
    ConfigErrorCollector errors;
    EXPECT_EQ("", printedBy([&] { shell.validate(&errors, home.file("bad.cfg").c_str()); }));
    EXPECT_GE(errors.getSize(CONFIG_ERROR), 2);
    EXPECT_TRUE(shell.getExecutionContext().getNodeGroupList().empty());
    ConfigErrorCollector none;
    shell.validate(&none, home.file("node.cfg").c_str());
    EXPECT_EQ(0, none.getSize());
}

TEST(OpenSslLocks, LockAndUnlock) {
    CShell::init_locks();
    CShell::lock_callback(CRYPTO_LOCK, 0, __FILE__, __LINE__);
    CShell::lock_callback(0, 0, __FILE__, __LINE__);
    int inside = 0;
    std::thread other;
    CShell::lock_callback(CRYPTO_LOCK, 0, __FILE__, __LINE__);
    other = std::thread([&] {
        CShell::lock_callback(CRYPTO_LOCK, 0, __FILE__, __LINE__);
        inside = 2;
        CShell::lock_callback(0, 0, __FILE__, __LINE__);
    });
    inside = 1;
    EXPECT_EQ(1, inside);
    CShell::lock_callback(0, 0, __FILE__, __LINE__);
    other.join();
    EXPECT_EQ(2, inside);
    EXPECT_EQ(static_cast<unsigned long>(::pthread_self()), CShell::thread_id());
    CShell::kill_locks();
}

}  // namespace
