#include <gtest/gtest.h>

#include "CSSLConfig.h"
#include "CShellConfigReader.h"
#include "ConfigErrorCollector.h"
#include "TextStream.h"

namespace {

// What the lines of the file leave in the one configuration of the process.
class SslFile : public testing::Test {
protected:
    SslFile() { forget(); }
    ~SslFile() override { forget(); }

    static void forget() {
        CSSLConfig::getInstance()->setPrivateKeyFile("");
        CSSLConfig::getInstance()->setPublicKeyFile("");
        CSSLConfig::getInstance()->setCertificateFile("");
    }
    std::string read(const std::string& text) {
        const TextStream stream(text);
        CShellConfigReader::readSslConfig(stream.get(), &errors);
        return errors.toString();
    }
    static std::string fields(const CSSLConfig& config) {
        return config.getPrivateKeyFile() + "|" + config.getPublicKeyFile() + "|" +
               config.getCertificateFile();
    }

    ConfigErrorCollector errors;
};

}  // namespace

TEST_F(SslFile, SetsTheThreeFieldsWhateverTheCaseOfTheKey) {
    EXPECT_EQ("", read("# comment\n"
                       "\n"
                       "PRIVATE_KEY_FILE=/k=1\n"
                       "Public_Key_File= /p \n"
                       "certificate_file=/x/y.crt"));
    EXPECT_EQ("/k=1| /p |/x/y.crt", fields(*CSSLConfig::getInstance()));
}

TEST_F(SslFile, TakesTheLastValueOfAKeyEvenAnEmptyOne) {
    EXPECT_EQ("", read("CERTIFICATE_FILE=/a\nPUBLIC_KEY_FILE=/p\nCERTIFICATE_FILE=/b\n"
                       "PUBLIC_KEY_FILE=\n"));
    EXPECT_EQ("||/b", fields(*CSSLConfig::getInstance()));
}

TEST_F(SslFile, RecordsEverythingElseAtLineZeroAndGoesOn) {
    EXPECT_EQ(
        "Unknown setting for SSL configuration: UNKNOWN\n"
        "Unknown setting for SSL configuration: CERTIFICATE_FILE \n"
        "Unknown setting for SSL configuration: certificate_file\n"
        "Unknown setting for SSL configuration: =value\n"
        "Unknown setting for SSL configuration:  #x\n",
        read("\n\nunknown=x\n"
             "CERTIFICATE_FILE = /x/y.crt\n"
             "certificate_file\n"
             "=value\n"
             " #x\n"
             "CERTIFICATE_FILE=/c\n"));
    EXPECT_EQ(5, errors.getSize(static_cast<CONFIGERROR_LEVEL>(2)));
    EXPECT_EQ("||/c", fields(*CSSLConfig::getInstance()));
}
