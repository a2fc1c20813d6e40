#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "CSystemEnvironment.h"
#include "ScopedEnvironment.h"

TEST(CSystemEnvironment, UsesTheDefaultsWhereNothingIsSet) {
    const ScopedEnvironment kelsh("KELSH_PATH", nullptr);
    const ScopedEnvironment kelnode("KELNODE_PATH", nullptr);
    const CSystemEnvironment environment;
    EXPECT_EQ("/opt/kelsh/", environment.getKelshPath());
    EXPECT_TRUE(environment.isDefaultKelshPathUsed());
    EXPECT_EQ("/opt/kelnode/", environment.getKelnodePath());
    EXPECT_TRUE(environment.isDefaultKelnodePathUsed());
}

TEST(CSystemEnvironment, CountsAnEmptyValueAsUnset) {
    const ScopedEnvironment kelsh("KELSH_PATH", "");
    const ScopedEnvironment kelnode("KELNODE_PATH", "");
    const CSystemEnvironment environment;
    EXPECT_EQ("/opt/kelsh/", environment.getKelshPath());
    EXPECT_TRUE(environment.isDefaultKelshPathUsed());
    EXPECT_EQ("/opt/kelnode/", environment.getKelnodePath());
    EXPECT_TRUE(environment.isDefaultKelnodePathUsed());
}

TEST(CSystemEnvironment, AppendsTheMissingSlash) {
    const ScopedEnvironment kelsh("KELSH_PATH", "/srv/k");
    const ScopedEnvironment kelnode("KELNODE_PATH", "/srv/n");
    const CSystemEnvironment environment;
    EXPECT_EQ("/srv/k/", environment.getKelshPath());
    EXPECT_FALSE(environment.isDefaultKelshPathUsed());
    EXPECT_EQ("/srv/n/", environment.getKelnodePath());
    EXPECT_FALSE(environment.isDefaultKelnodePathUsed());
}

TEST(CSystemEnvironment, KeepsAValueThatEndsInASlash) {
    const ScopedEnvironment kelsh("KELSH_PATH", "/srv/k/");
    EXPECT_EQ("/srv/k/", CSystemEnvironment().getKelshPath());
}

TEST(CSystemEnvironment, ChecksNothingElse) {
    const ScopedEnvironment kelsh("KELSH_PATH", "../relative//path//");
    EXPECT_EQ("../relative//path//", CSystemEnvironment().getKelshPath());
}

TEST(CSystemEnvironment, SharesOneStateAmongAllObjects) {
    const ScopedEnvironment kelsh("KELSH_PATH", "/one");
    const CSystemEnvironment first;
    const ScopedEnvironment changed("KELSH_PATH", "/two");
    EXPECT_EQ("/one/", first.getKelshPath());
    CSystemEnvironment second;
    EXPECT_EQ("/two/", first.getKelshPath());
    const ScopedEnvironment again("KELSH_PATH", nullptr);
    second.reload();
    EXPECT_TRUE(first.isDefaultKelshPathUsed());
}

TEST(CSystemEnvironment, MayBeMadeOnManyThreads) {
    const ScopedEnvironment kelsh("KELSH_PATH", "/srv/k");
    std::vector<std::thread> threads;
    std::vector<std::string> seen(8);
    for (std::string& path : seen) {
        threads.emplace_back([&path] { path = CSystemEnvironment().getKelshPath(); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(std::vector<std::string>(8, "/srv/k/"), seen);
}
