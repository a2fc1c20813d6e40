#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "Authorization.h"
#include "TempDir.h"

namespace {

constexpr SessionState kStates[] = {SessionState::kGreeting, SessionState::kRequest,
                                    SessionState::kUpload, SessionState::kBusy};
constexpr Role kRoles[] = {Role::kNone, Role::kObserver, Role::kReader, Role::kOperator,
                           Role::kFirmware};

// Written out once more, by numbers: what each role may send as a request, as type and flags.
using Request = std::pair<int, int>;
const std::map<Role, std::set<Request>> kMayRequest = {
    {Role::kNone, {}},
    {Role::kObserver, {{0x14, 0}, {0x15, 0}}},
    {Role::kReader, {{0x13, 0}, {0x14, 0}, {0x15, 0}}},
    {Role::kOperator, {{0x10, 0}, {0x11, 0}, {0x12, 0}, {0x13, 0}, {0x14, 0}, {0x15, 0}}},
    {Role::kFirmware,
     {{0x10, 0}, {0x10, 1}, {0x11, 0}, {0x11, 1}, {0x12, 0}, {0x13, 0}, {0x14, 0}, {0x15, 0}}}};
const std::set<int> kUploadTypes = {0x22, 0x23};

Verdict expected(SessionState state, Role role, int type, int flags) {
    if (state == SessionState::kGreeting) {
        return type == 0x02 && flags == 0 ? Verdict::kAllowed : Verdict::kOutOfPlace;
    }
    if (state == SessionState::kUpload && kUploadTypes.count(type) != 0 && flags == 0) {
        return role >= Role::kOperator ? Verdict::kAllowed : Verdict::kRefused;
    }
    if (state == SessionState::kRequest && type == 0x02 && flags == 0) {
        return Verdict::kAllowed;
    }
    if (state == SessionState::kRequest) {
        if (kMayRequest.at(role).count({type, flags}) != 0) {
            return Verdict::kAllowed;
        }
        if (kMayRequest.at(Role::kFirmware).count({type, flags}) != 0) {
            return Verdict::kRefused;
        }
    }
    return Verdict::kOutOfPlace;
}

class AuthorizationFile : public testing::Test {
protected:
    Authorization load(const std::string& content) {
        std::ofstream(file(), std::ios::binary) << content;
        faults.clear();
        return Authorization::load(file(), faults);
    }
    std::string file() const { return directory.file("authz.cfg"); }
    std::string onlyFault() const {
        return faults.size() == 1 ? std::to_string(faults.front().line) + ": " + faults.front().text
                                  : std::to_string(faults.size()) + " faults";
    }

    TempDir directory;
    std::vector<ConfigFault> faults;
};

class PathPrefixFiles : public testing::Test {
protected:
    PathPrefixFiles() {
        std::filesystem::create_directories(inside("deep"));
        std::filesystem::create_directories(directory.file("open-too"));
        write(inside("file"), "inside");
        write(inside("deep/file"), "deep");
        write(directory.file("secret"), "secret");
        write(directory.file("open-too/file"), "beside");
    }
    std::string inside(const std::string& name) const { return directory.file("open/" + name); }
    static void write(const std::string& name, const std::string& text) {
        std::ofstream(name) << text;
    }
    // The content, or what kept it from being read.
    std::string open(const std::string& path) const {
        return openBelow({directory.file("open")}, path);
    }
    static std::list<PathPrefix> opened(const std::list<std::string>& prefixes) {
        std::list<PathPrefix> list;
        for (const std::string& prefix : prefixes) {
            list.emplace_back(prefix);
            list.back().open();
        }
        return list;
    }
    static std::string openBelow(const std::list<std::string>& prefixes, const std::string& path) {
        try {
            const UniqueFd fd = PathPrefix::openFile(opened(prefixes), path);
            char text[64];
            const ssize_t count = ::read(fd.get(), text, sizeof text);
            return count < 0 ? "unreadable" : std::string(text, static_cast<std::size_t>(count));
        } catch (const PathPrefix::Outside&) {
            return "OUTSIDE";
        } catch (const CException& fault) {
            return fault.getErrMsg();
        }
    }

    TempDir directory;
};

}  // namespace

TEST(Authorization, EveryFrameInEveryStateIsDeniedUnlessItIsGranted) {
    int allowed = 0;
    for (const SessionState state : kStates) {
        for (const Role role : kRoles) {
            for (int type = 0; type < 256; ++type) {
                for (int flags = 0; flags < 256; ++flags) {
                    const Verdict verdict = judgeFrame(state, role, static_cast<std::uint8_t>(type),
                                                       static_cast<std::uint8_t>(flags));
                    ASSERT_EQ(expected(state, role, type, flags), verdict)
                        << "state " << static_cast<int>(state) << ", role " << nameOf(role)
                        << ", type " << type << ", flags " << flags;
                    allowed += verdict == Verdict::kAllowed ? 1 : 0;
                }
            }
        }
    }
    // 5 greetings in 2 states, 0 + 2 + 3 + 6 + 8 requests, 2 times 2 parts of a file.
    EXPECT_EQ(allowed, 10 + 19 + 4);
}

TEST_F(AuthorizationFile, WithoutTheFileEverybodyMayDoEverything) {
    const Authorization rules = Authorization::load(file(), faults);
    EXPECT_TRUE(faults.empty());
    EXPECT_FALSE(rules.isRestricted());
    EXPECT_EQ(Role::kFirmware, rules.grantOf("anybody").role);
}

TEST_F(AuthorizationFile, EmptyFileGrantsNothing) {
    const Authorization rules = load("");
    EXPECT_TRUE(faults.empty());
    EXPECT_TRUE(rules.isRestricted());
    EXPECT_EQ(Role::kNone, rules.grantOf("anybody").role);
}

TEST_F(AuthorizationFile, RolesAndPrefixesAreTaken) {
    const Authorization rules = load(
        "# who may do what\n\nwatch=observer\nlogs=reader /var/log /var/tmp/ /\nday=operator\n"
        "night shift=firmware");
    EXPECT_TRUE(faults.empty()) << onlyFault();
    EXPECT_EQ(Role::kObserver, rules.grantOf("watch").role);
    EXPECT_EQ(Role::kReader, rules.grantOf("logs").role);
    std::list<std::string> prefixes;
    for (const PathPrefix& prefix : rules.grantOf("logs").prefixes) {
        prefixes.push_back(prefix.text());
    }
    EXPECT_EQ((std::list<std::string>{"/var/log", "/var/tmp", "/"}), prefixes);
    EXPECT_EQ(Role::kOperator, rules.grantOf("day").role);
    EXPECT_EQ(Role::kFirmware, rules.grantOf("night shift").role);
    EXPECT_EQ(Role::kNone, rules.grantOf("Day").role);
    EXPECT_EQ(Role::kNone, rules.grantOf("").role);
}

TEST_F(AuthorizationFile, FaultsNameTheLineAndGrantNothing) {
    const std::map<std::string, std::string> cases = {
        {"m=root",
         "1: m: \"root\" is not a role; the roles are observer, reader, operator and "
         "firmware"},
        {"m=", "1: m: \"\" is not a role; the roles are observer, reader, operator and firmware"},
        {"m=none",
         "1: m: \"none\" is not a role; the roles are observer, reader, operator and "
         "firmware"},
        {"m", "1: \"m\" is not NAME=ROLE"},
        {"=operator", "1: the name of a certificate is missing before \"=\""},
        {"m=operator /tmp", "1: m: only a reader has path prefixes"},
        {"m=reader", "1: m: a reader needs at least one path prefix"},
        {"m=reader tmp", "1: m: \"tmp\" is not an absolute path"},
        {"m=reader /a/../b", "1: m: \"/a/../b\" has an empty, \".\" or \"..\" part"},
        {"m=reader /a//b", "1: m: \"/a//b\" has an empty, \".\" or \"..\" part"},
        {"m=reader /a/.", "1: m: \"/a/.\" has an empty, \".\" or \"..\" part"},
        {"m=reader " + std::string(600, 'x'), "1: the line is longer than 511 characters"}};
    for (const auto& entry : cases) {
        const Authorization rules = load(entry.first + "\n");
        EXPECT_EQ(entry.second, onlyFault());
        EXPECT_TRUE(rules.isRestricted());
        EXPECT_EQ(Role::kNone, rules.grantOf("m").role) << entry.first;
    }
}

TEST_F(AuthorizationFile, SecondMentionIsAFault) {
    const Authorization rules = load("m=observer\nm=firmware\n");
    EXPECT_EQ("2: m is named a second time", onlyFault());
    EXPECT_EQ(Role::kObserver, rules.grantOf("m").role);
}

TEST_F(AuthorizationFile, FileThatCannotBeReadIsNotTakenForNone) {
    ASSERT_EQ(0, ::symlink("/no/such/file", file().c_str()));
    const Authorization rules = Authorization::load(file(), faults);
    EXPECT_EQ("0: cannot be opened: No such file or directory", onlyFault());
    EXPECT_EQ(Role::kNone, rules.grantOf("anybody").role);
}

TEST_F(AuthorizationFile, DirectoryIsAFault) {
    std::filesystem::create_directory(file());
    const Authorization rules = Authorization::load(file(), faults);
    EXPECT_EQ("0: cannot be read: Is a directory", onlyFault());
    EXPECT_EQ(Role::kNone, rules.grantOf("anybody").role);
}

TEST_F(AuthorizationFile, FewerRightsAreTold) {
    const Authorization rules =
        load("o=observer\nr=reader /a /b\ns=reader /a\nall=reader /\nx=operator\n");
    const auto less = [&](const char* one, const char* other) {
        return rules.grantOf(one).isLessThan(rules.grantOf(other));
    };
    EXPECT_TRUE(less("o", "r"));
    EXPECT_FALSE(less("r", "o"));
    EXPECT_FALSE(less("r", "r"));
    EXPECT_TRUE(less("s", "r"));
    EXPECT_FALSE(less("r", "s"));
    EXPECT_FALSE(less("all", "r"));
    EXPECT_TRUE(less("r", "x"));
    EXPECT_TRUE(less("nobody", "o"));
}

TEST(PathPrefixText, CoversWholePartsOnly) {
    EXPECT_TRUE(PathPrefix::covers("/var/log", "/var/log"));
    EXPECT_TRUE(PathPrefix::covers("/var/log", "/var/log/x"));
    EXPECT_FALSE(PathPrefix::covers("/var/log", "/var/logs"));
    EXPECT_FALSE(PathPrefix::covers("/var/log", "/var"));
    EXPECT_TRUE(PathPrefix::covers("/", "/x"));
    EXPECT_FALSE(PathPrefix::covers("/", "x"));
    EXPECT_FALSE(PathPrefix::covers("", "/x"));
}

TEST_F(PathPrefixFiles, FilesBelowAreOpened) {
    EXPECT_EQ("inside", open(inside("file")));
    EXPECT_EQ("deep", open(inside("deep/file")));
    EXPECT_EQ("deep", open(inside("deep//file")));
    EXPECT_EQ("inside", openBelow({inside("file")}, inside("file")));
    EXPECT_EQ("inside", openBelow({"/"}, inside("file")));
    EXPECT_EQ("inside", openBelow({"/no/such", directory.file("open")}, inside("file")));
}

TEST_F(PathPrefixFiles, WhatIsElsewhereIsOutside) {
    for (const std::string& path :
         {directory.file("secret"), directory.file("open-too/file"), std::string("/etc/passwd"),
          std::string(""), std::string("file"), inside("../secret"), inside("deep/../file"),
          inside("deep/../../secret"), inside("..")}) {
        EXPECT_EQ("OUTSIDE", open(path)) << path;
    }
    EXPECT_EQ("OUTSIDE", openBelow({}, inside("file")));
    EXPECT_EQ("OUTSIDE", openBelow({inside("file")}, inside("file2")));
}

TEST_F(PathPrefixFiles, LinksDoNotLeadOut) {
    std::filesystem::create_symlink("../secret", inside("relative"));
    std::filesystem::create_symlink(directory.file("secret"), inside("absolute"));
    std::filesystem::create_symlink(directory.path(), inside("up"));
    std::filesystem::create_symlink("relative", inside("chain"));
    for (const char* name : {"relative", "absolute", "up/secret", "chain", "up/open-too/file"}) {
        EXPECT_EQ("OUTSIDE", open(inside(name))) << name;
    }
}

TEST_F(PathPrefixFiles, LinksThatStayBelowAreFollowed) {
    std::filesystem::create_symlink("deep/file", inside("link"));
    std::filesystem::create_symlink(inside("deep/file"), inside("absolute"));
    EXPECT_EQ("deep", open(inside("link")));
    // Where an absolute target leads today says nothing about tomorrow.
    EXPECT_EQ("OUTSIDE", open(inside("absolute")));
    EXPECT_EQ("deep", openBelow({"/"}, inside("absolute")));
}

TEST_F(PathPrefixFiles, PrefixMayBeALinkItself) {
    std::filesystem::create_directory_symlink(directory.file("open"), directory.file("alias"));
    EXPECT_EQ("inside", openBelow({directory.file("alias")}, directory.file("alias/file")));
    EXPECT_EQ("OUTSIDE", openBelow({directory.file("alias")}, inside("file")));
}

TEST_F(PathPrefixFiles, OnlyRegularFilesAreOpened) {
    ASSERT_EQ(0, ::mkfifo(inside("fifo").c_str(), 0600));
    EXPECT_EQ("it is no regular file", open(inside("fifo")));
    EXPECT_EQ("it is a directory", open(inside("deep")));
    EXPECT_EQ("No such file or directory", open(inside("missing")));
}

// What was opened with the rules is meant, whatever stands in its place now.
TEST_F(PathPrefixFiles, PrefixThatIsReplacedLeadsNowhereElse) {
    const std::list<PathPrefix> prefixes = opened({directory.file("open"), "/etc/passwd"});
    std::filesystem::rename(directory.file("open"), directory.file("moved"));
    std::filesystem::create_directory_symlink("/etc", directory.file("open"));
    EXPECT_THROW(PathPrefix::openFile(prefixes, inside("passwd")), CException);
    EXPECT_FALSE(PathPrefix::exists(prefixes, inside("passwd")));
    EXPECT_TRUE(PathPrefix::exists(prefixes, inside("file")));
    EXPECT_TRUE(PathPrefix::exists(prefixes, "/etc/passwd"));
}

TEST_F(PathPrefixFiles, FileAsAPrefixMayBeReplacedButNotByALink) {
    const std::list<PathPrefix> prefixes = opened({inside("file")});
    std::filesystem::rename(inside("file"), inside("file.1"));
    EXPECT_FALSE(PathPrefix::exists(prefixes, inside("file")));
    write(inside("file"), "new");
    EXPECT_TRUE(PathPrefix::openFile(prefixes, inside("file")));
    std::filesystem::remove(inside("file"));
    std::filesystem::create_symlink("file.1", inside("file"));
    EXPECT_THROW(PathPrefix::openFile(prefixes, inside("file")), PathPrefix::Outside);
    EXPECT_THROW(PathPrefix::openFile(prefixes, inside("file/x")), CException);
}

TEST_F(PathPrefixFiles, ExistenceIsToldOfNothingOutside) {
    std::filesystem::create_symlink("../secret", inside("link"));
    const std::list<PathPrefix> prefixes = opened({directory.file("open")});
    EXPECT_TRUE(PathPrefix::exists(prefixes, inside("deep")));
    EXPECT_TRUE(PathPrefix::exists(prefixes, directory.file("open")));
    EXPECT_FALSE(PathPrefix::exists(prefixes, inside("missing")));
    for (const std::string& path : {directory.file("secret"), inside("link"), inside("../secret"),
                                    std::string("/etc/shadow"), std::string("/no/such")}) {
        EXPECT_THROW(PathPrefix::exists(prefixes, path), PathPrefix::Outside) << path;
    }
}

TEST_F(PathPrefixFiles, PrefixThatIsNotThereCoversNothing) {
    const std::list<PathPrefix> prefixes = opened({directory.file("later")});
    write(directory.file("later"), "x");
    EXPECT_THROW(PathPrefix::openFile(prefixes, directory.file("later")), PathPrefix::Outside);
}
