#include <ostream>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "CSystemEnvironment.h"
#include "ScopedEnvironment.h"

namespace {

struct Path {
    const char* value;
    const char* kelsh;
    const char* kelnode;
    bool isDefault;
};

void PrintTo(const Path& path, std::ostream* out) {
    *out << (path.value == nullptr ? "unset" : path.value);
}

}  // namespace

class InstallPath : public testing::TestWithParam<Path> {};

TEST_P(InstallPath, EndsWithASlashAndKnowsWhetherItIsTheDefault) {
    const ScopedEnvironment kelsh("KELSH_PATH", GetParam().value);
    const ScopedEnvironment kelnode("KELNODE_PATH", GetParam().value);
    const CSystemEnvironment environment;
    EXPECT_EQ(GetParam().kelsh, environment.getKelshPath());
    EXPECT_EQ(GetParam().kelnode, environment.getKelnodePath());
    EXPECT_EQ(GetParam().isDefault, environment.isDefaultKelshPathUsed());
    EXPECT_EQ(GetParam().isDefault, environment.isDefaultKelnodePathUsed());
}

INSTANTIATE_TEST_SUITE_P(CSystemEnvironment, InstallPath,
                         testing::Values(Path{nullptr, "/opt/kelsh/", "/opt/kelnode/", true},
                                         Path{"", "/opt/kelsh/", "/opt/kelnode/", true},
                                         Path{"/srv/k", "/srv/k/", "/srv/k/", false},
                                         Path{"/srv/k/", "/srv/k/", "/srv/k/", false},
                                         Path{"rel", "rel/", "rel/", false},
                                         Path{"/", "/", "/", false},
                                         Path{"//a//b//", "//a//b//", "//a//b//", false},
                                         Path{" ", " /", " /", false},
                                         Path{"/opt/kelsh/", "/opt/kelsh/", "/opt/kelsh/", false}));

TEST(CSystemEnvironment, StateBelongsToTheProcessAndChangesOnlyByReload) {
    const ScopedEnvironment kelnode("KELNODE_PATH", nullptr);
    const ScopedEnvironment before("KELSH_PATH", "/one");
    CSystemEnvironment first;
    const ScopedEnvironment after("KELSH_PATH", "/two");
    EXPECT_EQ("/one/", first.getKelshPath());
    {
        const CSystemEnvironment second;
        EXPECT_EQ("/two/", second.getKelshPath());
    }
    EXPECT_EQ("/two/", first.getKelshPath());
    EXPECT_TRUE(first.isDefaultKelnodePathUsed());
    EXPECT_FALSE(first.isDefaultKelshPathUsed());
    const ScopedEnvironment unset("KELSH_PATH", nullptr);
    first.reload();
    EXPECT_EQ("/opt/kelsh/", first.getKelshPath());
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
