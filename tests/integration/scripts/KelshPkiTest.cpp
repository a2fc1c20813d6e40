#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CUtil.h"
#include "TempDir.h"
#include "TestPaths.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

namespace {

class KelshPki : public testing::Test {
protected:
    // Runs a shell line in the test's directory; its output is in "output".
    int sh(const std::string& line) {
        output.clear();
        return CUtil::exec_cmd("cd " + directory.path() + " && { " + line + "; } </dev/null",
                               &output, &output);
    }

    int pki(const std::string& arguments) {
        return sh(KELSH_SOURCE_DIR "/scripts/kelsh-pki --dir ca " + arguments);
    }

    // Whether the certificate is good for the purpose; options are openssl's.
    bool isGoodFor(const std::string& purpose, const std::string& certificate,
                   const std::string& options = "") {
        return sh("openssl verify -CAfile ca/ca.crt -purpose " + purpose + " " + options + " " +
                  certificate) == 0;
    }

    std::string about(const std::string& certificate, const std::string& what) {
        EXPECT_EQ(0, sh("openssl x509 -noout -in " + certificate + " " + what)) << output;
        return output;
    }

    unsigned modeOf(const std::string& name) {
        struct stat info {};
        EXPECT_EQ(0, ::stat(directory.file(name).c_str(), &info)) << name;
        return info.st_mode & 07777;
    }

    bool exists(const std::string& name) { return CUtil::isFileExisted(directory.file(name)); }

    TempDir directory;
    std::string output;
};

TEST_F(KelshPki, MakesOneAuthorityAndKeepsIt) {
    ASSERT_EQ(0, pki("init")) << output;
    EXPECT_EQ(0600u, modeOf("ca/ca.key"));
    EXPECT_EQ(0700u, modeOf("ca"));
    const std::string before = about("ca/ca.crt", "-fingerprint");
    EXPECT_EQ(1, pki("init"));
    EXPECT_THAT(output, HasSubstr("there is a CA in"));
    EXPECT_EQ(before, about("ca/ca.crt", "-fingerprint"));
}

TEST_F(KelshPki, GivesAMasterTheRightToCommandOnly) {
    ASSERT_EQ(0, pki("init")) << output;
    ASSERT_EQ(0, pki("master m1")) << output;
    EXPECT_EQ(0600u, modeOf("ca/masters/m1/master.key"));
    EXPECT_TRUE(isGoodFor("sslclient", "ca/masters/m1/master.crt"));
    EXPECT_FALSE(isGoodFor("sslserver", "ca/masters/m1/master.crt"));
    EXPECT_THAT(about("ca/masters/m1/master.crt", "-ext extendedKeyUsage"),
                EndsWith("\n    TLS Web Client Authentication\n"));
    // The certificate first, then the authority.
    EXPECT_EQ(0, sh("grep -c BEGIN.CERTIFICATE ca/masters/m1/master.crt"));
    EXPECT_EQ("2\n", output);
    EXPECT_THAT(about("ca/masters/m1/master.crt", "-subject"), HasSubstr("CN = m1"));
    EXPECT_EQ(0, sh("openssl pkey -in ca/masters/m1/master.key -pubout | "
                    "cmp - ca/masters/m1/master.pub"))
        << output;
}

TEST_F(KelshPki, GivesANodeItsAddressesAndNoRightToCommand) {
    ASSERT_EQ(0, pki("init")) << output;
    ASSERT_EQ(0, pki("node n1 --ip 127.1.0.1 --ip 10.0.0.1 --ip fd00::1")) << output;
    const std::string certificate = "ca/nodes/n1/node.crt";
    EXPECT_EQ(0600u, modeOf("ca/nodes/n1/node.key"));
    EXPECT_TRUE(isGoodFor("sslserver", certificate, "-verify_ip 127.1.0.1"));
    EXPECT_TRUE(isGoodFor("sslserver", certificate, "-verify_ip fd00::1"));
    EXPECT_TRUE(isGoodFor("sslserver", certificate, "-verify_hostname n1"));
    EXPECT_FALSE(isGoodFor("sslserver", certificate, "-verify_ip 127.1.0.2"));
    EXPECT_FALSE(isGoodFor("sslclient", certificate));
    EXPECT_THAT(about(certificate, "-text"), HasSubstr("NIST CURVE: P-256"));
    EXPECT_EQ(0, sh("cmp ca/ca.crt ca/nodes/n1/ca.crt"));
}

TEST_F(KelshPki, RefusesNamesAndAddressesThatMeanSomethingElse) {
    ASSERT_EQ(0, pki("init")) << output;
    for (const char* name :
         {"../x", "a/b", "'a b'", "'a,DNS:b'", "'a;id'", "''", "-n", ".hidden"}) {
        EXPECT_NE(pki("node --ip 127.1.0.1 " + std::string(name)), 0) << name;
    }
    for (const char* ip : {"1.2.3", "1.2.3.256", "'1.2.3.4,DNS:x'", "host", "::g", "''"}) {
        EXPECT_EQ(1, pki("node n1 --ip " + std::string(ip))) << ip;
        EXPECT_THAT(output, HasSubstr("is not an IP address")) << ip;
    }
    EXPECT_EQ(1, pki("node n1 --ip 1.2.3.4 --days 0"));
    EXPECT_EQ(2, pki("node n1"));
    EXPECT_TRUE(std::filesystem::is_empty(directory.file("ca/nodes")));
}

TEST_F(KelshPki, IssuesANameOnce) {
    ASSERT_EQ(0, pki("init")) << output;
    std::vector<std::thread> issuers;
    std::vector<int> statuses(6, -1);
    for (std::size_t i = 0; i < statuses.size(); ++i) {
        issuers.emplace_back([this, &statuses, i] {
            statuses[i] = CUtil::exec_cmd(KELSH_SOURCE_DIR "/scripts/kelsh-pki --dir " +
                                              directory.file("ca") +
                                              " node n1 --ip 127.1.0.1 >/dev/null 2>&1",
                                          nullptr);
        });
    }
    for (std::thread& issuer : issuers) {
        issuer.join();
    }
    EXPECT_EQ(1, std::count(statuses.begin(), statuses.end(), 0));
    EXPECT_EQ(5, std::count(statuses.begin(), statuses.end(), 1));
    EXPECT_EQ(1, pki("master n1"));
    EXPECT_THAT(output, HasSubstr("n1 has a certificate already"));
    EXPECT_TRUE(isGoodFor("sslserver", "ca/nodes/n1/node.crt"));
}

TEST_F(KelshPki, IssuesAWholeListOrNothingOfABrokenOne) {
    ASSERT_EQ(0, pki("init")) << output;
    std::ofstream(directory.file("broken")) << "n1 127.1.0.1\nn2\n";
    EXPECT_EQ(1, pki("nodes broken"));
    EXPECT_THAT(output, HasSubstr("\"n2\": a node needs an address"));
    std::ofstream(directory.file("twice")) << "n1 127.1.0.1\nn1 127.1.0.2\n";
    EXPECT_EQ(1, pki("nodes twice"));
    EXPECT_THAT(output, HasSubstr("n1 stands twice"));
    EXPECT_TRUE(std::filesystem::is_empty(directory.file("ca/nodes")));

    std::ofstream list(directory.file("list"));
    list << "# comment\n\n";
    for (int i = 1; i <= 20; ++i) {
        list << "n" << i << " 127.1.0." << i << (i == 20 ? "" : "\n");
    }
    list.close();
    ASSERT_EQ(0, pki("nodes list")) << output;
    EXPECT_THAT(output, StartsWith("20 nodes"));
    for (int i = 1; i <= 20; ++i) {
        const std::string n = std::to_string(i);
        EXPECT_TRUE(
            isGoodFor("sslserver", "ca/nodes/n" + n + "/node.crt", "-verify_ip 127.1.0." + n))
            << output;
        EXPECT_EQ(0600u, modeOf("ca/nodes/n" + n + "/node.key"));
    }
    EXPECT_EQ(0, sh("for n in ca/nodes/*; do openssl x509 -in $n/node.crt -noout -serial; done | "
                    "sort -u | wc -l"));
    EXPECT_EQ("20\n", output);
}

TEST_F(KelshPki, RenewsForTheSameKeyAndAddresses) {
    ASSERT_EQ(0, pki("init")) << output;
    ASSERT_EQ(0, pki("node n1 --ip 127.1.0.1 --ip fd00::1 --days 10")) << output;
    ASSERT_EQ(0, sh("cp ca/nodes/n1/node.key key; cp ca/nodes/n1/node.crt old"));
    ASSERT_EQ(0, pki("renew n1 --days 400")) << output;
    EXPECT_EQ(0, sh("cmp key ca/nodes/n1/node.key"));
    EXPECT_NE(about("old", "-serial"), about("ca/nodes/n1/node.crt", "-serial"));
    EXPECT_EQ(about("old", "-pubkey"), about("ca/nodes/n1/node.crt", "-pubkey"));
    EXPECT_EQ(about("old", "-ext subjectAltName,extendedKeyUsage"),
              about("ca/nodes/n1/node.crt", "-ext subjectAltName,extendedKeyUsage"));
    EXPECT_EQ(0, sh("openssl x509 -in ca/nodes/n1/node.crt -noout -checkend $((399 * 86400))"));
    ASSERT_EQ(0, pki("master m1"));
    ASSERT_EQ(0, pki("renew m1")) << output;
    EXPECT_EQ(0, sh("grep -c BEGIN.CERTIFICATE ca/masters/m1/master.crt"));
    EXPECT_EQ("2\n", output);
    EXPECT_EQ(1, pki("renew ghost"));
    EXPECT_THAT(output, HasSubstr("there is no certificate for ghost"));
}

TEST_F(KelshPki, RevokesAllThatANameEverHeld) {
    ASSERT_EQ(0, pki("init")) << output;
    ASSERT_EQ(0, pki("node n1 --ip 127.1.0.1"));
    ASSERT_EQ(0, pki("node n2 --ip 127.1.0.2"));
    ASSERT_EQ(0, pki("master m1"));
    ASSERT_EQ(0, sh("cp ca/nodes/n1/node.crt first"));
    ASSERT_EQ(0, pki("renew n1"));
    ASSERT_EQ(0, sh("cp ca/nodes/n1/node.crt second"));
    EXPECT_FALSE(exists("ca/crl.pem"));
    ASSERT_EQ(0, pki("revoke n1")) << output;
    EXPECT_THAT(output, HasSubstr("SIGHUP"));

    const std::string crl = "-crl_check -CRLfile ca/crl.pem";
    EXPECT_FALSE(isGoodFor("sslserver", "first", crl));
    EXPECT_THAT(output, HasSubstr("certificate revoked"));
    EXPECT_FALSE(isGoodFor("sslserver", "second", crl));
    EXPECT_TRUE(isGoodFor("sslserver", "ca/nodes/n2/node.crt", crl));
    EXPECT_EQ(0, sh("cmp ca/crl.pem ca/nodes/n2/crl.pem && cmp ca/crl.pem ca/masters/m1/crl.pem"));

    // The name is free again; what it gets then is good and knows of the revocation.
    ASSERT_EQ(0, pki("node n1 --ip 127.1.0.1")) << output;
    EXPECT_TRUE(isGoodFor("sslserver", "ca/nodes/n1/node.crt", crl));
    EXPECT_TRUE(exists("ca/nodes/n1/crl.pem"));
    ASSERT_EQ(0, pki("revoke m1")) << output;
    ASSERT_EQ(0, pki("revoke n1")) << output;
    EXPECT_EQ(0, sh("openssl crl -in ca/crl.pem -noout -text | grep -c 'Serial Number'"));
    EXPECT_EQ("4\n", output);
    EXPECT_EQ(1, pki("revoke n1"));
}

TEST_F(KelshPki, ListsWhatIsLeftOfEachCertificate) {
    ASSERT_EQ(0, pki("init")) << output;
    ASSERT_EQ(0, pki("master m1 --days 100"));
    ASSERT_EQ(0, pki("node n1 --ip 127.1.0.1 --days 7"));
    ASSERT_EQ(0, pki("node n2 --ip 127.1.0.2"));
    ASSERT_EQ(0, pki("revoke n2"));
    ASSERT_EQ(0, pki("list")) << output;

    EXPECT_THAT(output, MatchesRegex("(.|\n)*\nmaster  m1 +(99|100) days *\n(.|\n)*"));
    EXPECT_THAT(output, MatchesRegex("(.|\n)*\nnode    n1 +[67] days renew soon n1, 127.1.0.1\n"
                                     "(.|\n)*"));
    EXPECT_THAT(output, MatchesRegex("(.|\n)*\nrevoked n2 +serial [0-9A-F]+\n"));
    EXPECT_THAT(output, Not(HasSubstr("node    n2")));
}

TEST_F(KelshPki, SaysWhatIsWrongWithTheCommandLine) {
    EXPECT_EQ(1, pki("master m1"));
    EXPECT_THAT(output, HasSubstr("there is no CA in"));
    for (const char* arguments :
         {"", "explode", "master", "init now", "master a b", "--ip", "--colour list"}) {
        EXPECT_EQ(2, pki(arguments)) << arguments;
        EXPECT_THAT(output, HasSubstr("Usage: kelsh-pki")) << arguments;
    }
    EXPECT_EQ(0, pki("--help"));
}

}  // namespace
