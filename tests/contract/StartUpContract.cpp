// Start-up: what is registered, read and named before the first command.
#include <csignal>
#include <pthread.h>
#include <thread>

#include <gtest/gtest.h>
#include <openssl/crypto.h>

#include "Contract.h"
#include "ScopedEnvironment.h"
#include "ScopedWorkingDirectory.h"
#include "ShellFixture.h"

namespace {

using StartUpContract = ShellFixture;

Words rootsOf(CShellExecutionContext& context) {
    Words names;
    for (const CShellCommandSet* set : context.getRootCommandSetList()) {
        names.push_back(set->getCommandSetName());
    }
    return names;
}

TEST_F(StartUpContract, BuiltInSetsComeFirstAndInThisOrder) {
    put("cmd.cfg",
        "[cmdset]\nname=tools\ndescription=D\n[cmd]\nname=hello\ndescription=D\ntype=SCRIPT\n"
        "destination=MASTER\ncmd=true\n");
    CShell shell;
    CShellExecutionContext context;
    std::list<std::string> words;
    EXPECT_EQ(printedBy([&] { EXPECT_TRUE(shell.init(words, context)); }), "");
    EXPECT_EQ(rootsOf(context), (Words{"BASIC", "biosfw", "r3biosfw", "ipmifw", "tools"}));
    EXPECT_EQ(context.getBasicCommandSet(), context.getRootCommandSetList().front());
    EXPECT_NE(context.getHostName(), "");
    EXPECT_EQ(context.getHostName().find('\n'), std::string::npos);
    EXPECT_EQ(context.getNodeCfgFileName(), home.path() + "/node.cfg");
    EXPECT_EQ(context.getCmdCfgFileName(), home.path() + "/cmd.cfg");
    EXPECT_EQ(context.getSslCfgFileName(), home.path() + "/ssl_master.cfg");
}

TEST_F(StartUpContract, NamedNodeFileIsRelativeToTheInstallPath) {
    put("lab.cfg", "");
    CShell shell;
    CShellExecutionContext context;
    ConfigErrorCollector errors;
    std::list<std::string> words = {"-cfg", "lab.cfg"};
    shell.processProgramOption(words, context, &errors);
    EXPECT_TRUE(shell.init(words, context));
    EXPECT_EQ(context.getNodeCfgFileName(), home.path() + "/lab.cfg");
}

TEST_F(StartUpContract, WithoutAnInstallPathNamesStayBare) {
    const ScopedEnvironment none("KELSH_PATH", nullptr);
    const ScopedWorkingDirectory there(home.path());
    CShell shell;
    CShellExecutionContext context;
    std::list<std::string> words;
    EXPECT_TRUE(shell.init(words, context));
    EXPECT_EQ(context.getNodeCfgFileName(), "node.cfg");
    EXPECT_EQ(context.getSslCfgFileName(), "ssl_master.cfg");
}

TEST_F(StartUpContract, FaultsOfTheConfigurationArePrintedOnce) {
    put("node.cfg", "[group]\ng=ghost\n");
    CShell shell;
    CShellExecutionContext context;
    std::list<std::string> words;
    bool good = true;
    const std::string printed = printedBy([&] { good = shell.init(words, context); });
    EXPECT_FALSE(good);
    EXPECT_EQ(printed.find("Line:2, "), 0u) << printed;
    EXPECT_NE(printed.find("ghost"), std::string::npos);
    EXPECT_EQ(printed.find("ghost"), printed.rfind("ghost")) << printed;
    EXPECT_EQ(rootsOf(context), (Words{"BASIC", "biosfw", "r3biosfw", "ipmifw"}));
}

TEST_F(StartUpContract, ValidationCollectsAndPrintsNothing) {
    put("bad.cfg", "[group]\ng=ghost\ng=ghost\n");
    CShell shell;
    ConfigErrorCollector errors;
    EXPECT_EQ(printedBy([&] { shell.validate(&errors, home.file("bad.cfg").c_str()); }), "");
    EXPECT_GE(errors.getSize(CONFIG_ERROR), 2);
    EXPECT_TRUE(shell.getExecutionContext().getNodeGroupList().empty());
    ConfigErrorCollector none;
    shell.validate(&none, home.file("node.cfg").c_str());
    EXPECT_EQ(none.getSize(), 0);
}

TEST_F(StartUpContract, InterruptIsAnsweredWhileItRuns) {
    CShell shell;
    EXPECT_EQ(run(shell, {"list", "node"}), 0);
    EXPECT_EQ(printedBy([] { ::raise(SIGINT); }), "Do not use Ctrl+C to terminate this program.\n");
    struct sigaction installed = {};
    ASSERT_EQ(::sigaction(SIGINT, nullptr, &installed), 0);
    EXPECT_EQ(installed.sa_handler, &signalHandler);
    EXPECT_EQ(installed.sa_flags & SA_RESTART, 0);
    ::signal(SIGINT, SIG_DFL);
    ::signal(SIGPIPE, SIG_DFL);
}

TEST(OpenSslLocksContract, LockAndUnlock) {
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
    EXPECT_EQ(inside, 1);
    CShell::lock_callback(0, 0, __FILE__, __LINE__);
    other.join();
    EXPECT_EQ(inside, 2);
    EXPECT_EQ(CShell::thread_id(), static_cast<unsigned long>(::pthread_self()));
    CShell::kill_locks();
}

}  // namespace
