#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "FileTrust.h"
#include "TempDir.h"

namespace {

namespace fs = std::filesystem;

constexpr uid_t kStranger = 65534;

class FileTrustTest : public ::testing::Test {
protected:
    std::string make(const std::string& name, mode_t mode) const {
        const std::string path = directory.file(name);
        std::ofstream(path) << "x";
        set(path, mode);
        return path;
    }
    std::string makeDirectory(const std::string& name, mode_t mode) const {
        const std::string path = directory.file(name);
        fs::create_directory(path);
        set(path, mode);
        return path;
    }
    static void set(const std::string& path, mode_t mode) {
        ASSERT_EQ(0, ::chmod(path.c_str(), mode));
    }
    static std::vector<std::string> textsOf(const std::string& path) {
        FileTrust trust;
        trust.examine(path);
        std::vector<std::string> texts;
        for (const FileTrust::Finding& finding : trust.findings()) {
            texts.push_back(finding.text());
        }
        return texts;
    }

    TempDir directory;
};

using Texts = std::vector<std::string>;

}  // namespace

TEST_F(FileTrustTest, FileOfOneselfBelowAStickyDirectoryIsTrusted) {
    EXPECT_EQ(Texts{}, textsOf(make("plain", 0644)));
    EXPECT_EQ(Texts{}, textsOf("/etc/passwd"));
}

TEST_F(FileTrustTest, FileThatOthersWriteIsNamedWithItsRemedy) {
    const std::string all = make("all", 0666);
    EXPECT_EQ(Texts{all + " can be written by others (mode 0666): chmod go-w " + all},
              textsOf(all));
    const std::string group = make("group", 0660);
    EXPECT_EQ(Texts{group + " can be written by others (mode 0660): chmod go-w " + group},
              textsOf(group));
}

TEST_F(FileTrustTest, RemedyIsQuotedForAShell) {
    const std::string odd = make("it's $(odd)", 0666);
    const std::string quoted = "'" + directory.path() + "/it'\\''s $(odd)'";
    EXPECT_EQ(Texts{odd + " can be written by others (mode 0666): chmod go-w " + quoted},
              textsOf(odd));
}

TEST_F(FileTrustTest, DirectoryAboveThatOthersWriteIsNamed) {
    const std::string above = makeDirectory("above", 0777);
    const std::string file = make("above/file", 0600);
    EXPECT_EQ(Texts{above + " can be written by others (mode 0777): chmod go-w " + above},
              textsOf(file));
    set(above, 01777);
    EXPECT_EQ(Texts{}, textsOf(file));
}

TEST_F(FileTrustTest, DirectoryThatIsNamedItselfMustNotBeStickyEither) {
    const std::string open = makeDirectory("open", 01777);
    EXPECT_EQ(Texts{open + " can be written by others (mode 1777): chmod go-w " + open},
              textsOf(open + "/"));
}

TEST_F(FileTrustTest, BothSidesOfALinkAreExamined) {
    const std::string loose = makeDirectory("loose", 0777);
    const std::string target = make("loose/target", 0644);
    fs::create_symlink("loose/target", directory.file("relative"));
    fs::create_symlink(target, directory.file("absolute"));
    const Texts wanted{loose + " can be written by others (mode 0777): chmod go-w " + loose};
    EXPECT_EQ(wanted, textsOf(directory.file("relative")));
    EXPECT_EQ(wanted, textsOf(directory.file("absolute")));
}

TEST_F(FileTrustTest, WaysThatLeadNowhereAreNoFinding) {
    fs::create_symlink("circle", directory.file("circle"));
    EXPECT_EQ(Texts{}, textsOf(directory.file("circle")));
    EXPECT_EQ(Texts{}, textsOf(directory.file("missing/deeper")));
    EXPECT_EQ(Texts{}, textsOf("/dev/full"));
}

TEST_F(FileTrustTest, PathIsNamedOnceOverSeveralFiles) {
    makeDirectory("above", 0777);
    FileTrust trust;
    trust.examine(make("above/one", 0644));
    trust.examine(make("above/two", 0644));
    EXPECT_EQ(1U, trust.findings().size());
}

TEST_F(FileTrustTest, EntriesOfADirectoryAreExamined) {
    const std::string tools = makeDirectory("tools", 0755);
    make("tools/good", 0755);
    const std::string bad = make("tools/bad", 0757);
    FileTrust trust;
    trust.examineEntries(tools + "/");
    ASSERT_EQ(1U, trust.findings().size());
    EXPECT_EQ(bad, trust.findings().front().path);
}

TEST_F(FileTrustTest, SecretThatOthersReadIsNamed) {
    const std::string key = make("key", 0640);
    EXPECT_EQ(key + " can be read by others (mode 0640): chmod go= " + key,
              FileTrust::examineSecret(key).text());
    set(key, 0600);
    EXPECT_EQ("", FileTrust::examineSecret(key).path);
    EXPECT_EQ("", FileTrust::examineSecret(directory.file("missing")).path);
}

TEST_F(FileTrustTest, FileOfAnotherUserIsNamed) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root";
    }
    const std::string file = make("foreign", 0644);
    ASSERT_EQ(0, ::chown(file.c_str(), kStranger, 0));
    FileTrust ofRoot(0);
    ofRoot.examine(file);
    ASSERT_EQ(1U, ofRoot.findings().size());
    EXPECT_EQ("chown root " + file, ofRoot.findings().front().remedy);
    // Who runs as that user may believe his own files, and those of root.
    ASSERT_EQ(0, ::chown(directory.path().c_str(), kStranger, 0));
    FileTrust ofStranger(kStranger);
    ofStranger.examine(file);
    EXPECT_TRUE(ofStranger.findings().empty());
}

TEST_F(FileTrustTest, LinkOfAnotherUserIsNamed) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root";
    }
    const std::string link = directory.file("link");
    fs::create_symlink("/etc/passwd", link);
    ASSERT_EQ(0, ::lchown(link.c_str(), kStranger, 0));
    FileTrust trust(0);
    trust.examine(link);
    ASSERT_EQ(1U, trust.findings().size());
    EXPECT_EQ("chown -h root " + link, trust.findings().front().remedy);
}
