// The counter file of a shell: what is read from it and what is left in it.
#include <climits>
#include <filesystem>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "Observed.h"
#include "ScopedEnvironment.h"
#include "ScopedWorkingDirectory.h"
#include "ShellFixture.h"

namespace {

struct CounterFile {
    std::string text;
    unsigned int next;
    std::string after;
};

void PrintTo(const CounterFile& row, std::ostream* out) {
    *out << ::testing::PrintToString(row.text);
}

class CounterFileText : public ShellFixture, public ::testing::WithParamInterface<CounterFile> {};

TEST_P(CounterFileText, IsReadAndCountedOn) {
    put("cmdseq.cfg", GetParam().text);
    CShell shell;
    EXPECT_EQ(GetParam().next, shell.readCmdSeqFromFile());
    EXPECT_EQ(GetParam().text, content("cmdseq.cfg")) << "reading must not change it";
    EXPECT_EQ(GetParam().next, shell.getNextCmdSeq());
    EXPECT_EQ(GetParam().after, content("cmdseq.cfg"));
}

INSTANTIATE_TEST_SUITE_P(
    Texts, CounterFileText,
    ::testing::Values(CounterFile{"", 0, "1"}, CounterFile{"0", 0, "1"},
                      CounterFile{"41", 41, "42"}, CounterFile{"41\n", 41, "42"},
                      CounterFile{"# note\n41\n99\n", 41, "42"},
                      CounterFile{"\n\n#\n\n7 and more\n", 7, "8"}, CounterFile{"abc", 0, "1"},
                      CounterFile{"\n\n#\n  7 apples\n9\n", 7, "8"},
                      CounterFile{"12abc\n13", 12, "13"}, CounterFile{"  5", 5, "6"},
                      CounterFile{" # 5\n6\n", 0, "1"}, CounterFile{"# only a note\n", 0, "1"},
                      CounterFile{"4294967295", 4294967295u, "0"},
                      CounterFile{"4294967296", 0, "1"}, CounterFile{"4294967301", 5, "6"},
                      CounterFile{"-1", 4294967295u, "0"},
                      // Pieces of 511 characters count as lines of their own.
                      CounterFile{"#" + std::string(510, 'x') + "77\n", 77, "78"},
                      CounterFile{"#" + std::string(600, 'x') + "\n8\n", 0, "1"}));

using CounterOfTheShell = ShellFixture;

TEST_F(CounterOfTheShell, WritingReplacesTheWholeFile) {
    put("cmdseq.cfg", "# a long comment that must go\n123456\n");
    CShell shell;
    shell.writeCmdSeqToFile(5);
    EXPECT_EQ("5", content("cmdseq.cfg"));
    shell.writeCmdSeqToFile(UINT_MAX);
    EXPECT_EQ("4294967295", content("cmdseq.cfg"));
}

TEST_F(CounterOfTheShell, FileThatCannotBeWrittenIsReported) {
    std::filesystem::create_directory(home.file("cmdseq.cfg"));
    CShell shell;
    const std::string message = "ERROR!!! fopen(cmdSeqFilePath.data(), \"wt\") returns NULL....\n";
    EXPECT_EQ(message, printedBy([&] { shell.writeCmdSeqToFile(3); }));
    EXPECT_EQ("", printedBy([&] { EXPECT_EQ(0u, shell.readCmdSeqFromFile()); }));
    EXPECT_EQ(message, printedBy([&] { EXPECT_EQ(0u, shell.getNextCmdSeq()); }));
}

TEST_F(CounterOfTheShell, WithoutAnInstallPathTheFileIsInTheWorkingDirectory) {
    for (const char* unset : {static_cast<const char*>(nullptr), ""}) {
        const TempDir work;
        const ScopedWorkingDirectory there(work.path());
        const ScopedEnvironment none("KELSH_PATH", unset);
        std::unique_ptr<CShell> shell;
        printedBy([&] { shell = std::make_unique<CShell>(); });
        EXPECT_EQ(0u, shell->getNextCmdSeq());
        EXPECT_TRUE(std::filesystem::exists(work.file("cmdseq.cfg")));
        EXPECT_FALSE(std::filesystem::exists(home.file("cmdseq.cfg")));
    }
}

TEST_F(CounterOfTheShell, InstallPathKeepsTheCounterWhereverTheUserStands) {
    const TempDir work;
    const ScopedWorkingDirectory there(work.path());
    CShell shell;
    EXPECT_EQ(0u, shell.getNextCmdSeq());
    EXPECT_EQ("1", content("cmdseq.cfg"));
    EXPECT_FALSE(std::filesystem::exists(work.file("cmdseq.cfg")));
}

TEST_F(CounterOfTheShell, SemaphoreIsThereWithTheShellAndGoesWithIt) {
    struct stat about;
    {
        CShell shell;
        ASSERT_EQ(0, ::stat("/dev/shm/sem.KELSH_CMD_SEQ_SEMAPHORE", &about));
    }
    EXPECT_NE(::stat("/dev/shm/sem.KELSH_CMD_SEQ_SEMAPHORE", &about), 0);
}

TEST_F(CounterOfTheShell, ShellWhoseSemaphoreWasUnlinkedGoesOnCounting) {
    CShell staying;
    { CShell leaving; }
    EXPECT_EQ(0u, staying.getNextCmdSeq());
    CShell late;
    EXPECT_EQ(1u, late.getNextCmdSeq());
    EXPECT_EQ(2u, staying.getNextCmdSeq());
}

}  // namespace
