#include <ctime>
#include <fstream>

#include <gtest/gtest.h>

#include "CertificateExpiry.h"
#include "TempDir.h"
#include "TestPki.h"

namespace {

constexpr std::time_t kDay = 24 * 60 * 60;

class CertificateExpiry : public testing::Test {
protected:
    std::string issue(const std::string& name, long seconds) {
        TestPki::Request request;
        request.commonName = name;
        request.notAfterSeconds = seconds;
        const std::string file = pki.issue(name, request).certificateFile;
        // Alone, without the authority's.
        const std::string text = read(file);
        const std::string end = "-----END CERTIFICATE-----\n";
        std::ofstream(file) << text.substr(0, text.find(end) + end.size());
        return file;
    }
    static std::string read(const std::string& name) {
        std::ifstream stream(name);
        return std::string(std::istreambuf_iterator<char>(stream), {});
    }
    static std::string only(const std::list<std::string>& warnings) {
        return warnings.size() == 1 ? warnings.front()
                                    : std::to_string(warnings.size()) + " warnings";
    }

    TempDir directory;
    TestPki pki{directory.path()};
    const std::time_t now = std::time(nullptr);
};

}  // namespace

TEST_F(CertificateExpiry, ThirtyDaysAhead) {
    const std::string file = issue("master", 40 * kDay);
    EXPECT_EQ("0 warnings", only(certificateexpiry::warnings({file}, now)));
    EXPECT_EQ("0 warnings", only(certificateexpiry::warnings({file}, now + 9 * kDay)));
    const std::string warning = only(certificateexpiry::warnings({file}, now + 11 * kDay));
    EXPECT_EQ(0U, warning.rfind("The certificate CN=master in \"" + file + "\" expires in ", 0))
        << warning;
    EXPECT_NE(warning.find(" 28 days, on ") == std::string::npos,
              warning.find(" 29 days, on ") == std::string::npos)
        << warning;
}

TEST_F(CertificateExpiry, LastDayAndAfter) {
    const std::string file = issue("master", 40 * kDay);
    EXPECT_NE(only(certificateexpiry::warnings({file}, now + 40 * kDay - 7000)).find(" hours, on "),
              std::string::npos);
    EXPECT_NE(
        only(certificateexpiry::warnings({file}, now + 39 * kDay - 7000)).find("in 1 day, on "),
        std::string::npos);
    EXPECT_NE(only(certificateexpiry::warnings({file}, now + 41 * kDay)).find("\" expired on "),
              std::string::npos);
}

TEST_F(CertificateExpiry, EveryCertificateOfAFileIsLookedAt) {
    const std::string file = issue("master", 10 * kDay);
    std::ofstream(file, std::ios::app) << pki.caText();
    EXPECT_EQ(1U, certificateexpiry::warnings({file, file, ""}, now).size());
    EXPECT_EQ(2U, certificateexpiry::warnings({file, file, ""}, now + 80 * kDay).size());
}

TEST_F(CertificateExpiry, RevocationListsEndToo) {
    pki.revoke({1}, -60, 10 * kDay);
    const std::string list = certificateexpiry::revocationListBeside(pki.caFile());
    const std::string warning = only(certificateexpiry::warnings({list}, now));
    EXPECT_EQ(0U, warning.rfind("The revocation list \"" + list + "\" expires in ", 0)) << warning;
    EXPECT_EQ("0 warnings", only(certificateexpiry::warnings({list}, now, 5)));
    EXPECT_EQ("crl.pem", certificateexpiry::revocationListBeside("master.pem"));
}

TEST_F(CertificateExpiry, FilesWithoutCertificatesArePassedOver) {
    std::ofstream(directory.file("text")) << "no certificate\n";
    EXPECT_TRUE(
        certificateexpiry::warnings({directory.file("text"), "/no/such", "/tmp", ""}, now).empty());
}
