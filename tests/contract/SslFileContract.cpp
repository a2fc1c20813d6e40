#include "CSSLConfig.h"
#include "CShellConfigReader.h"
#include "ConfigErrorCollector.h"
#include "ConfigFiles.h"
#include "Contract.h"
#include "TempDir.h"
#include "TextStream.h"

namespace {

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
    EXPECT_EQ(read("# comment\n"
                   "\n"
                   "PRIVATE_KEY_FILE=/k=1\n"
                   "Public_Key_File= /p \n"
                   "certificate_file=/x/y.crt"),
              "");
    EXPECT_EQ(fields(*CSSLConfig::getInstance()), "/k=1| /p |/x/y.crt");
}

TEST_F(SslFile, TakesTheLastValueOfAKeyEvenAnEmptyOne) {
    EXPECT_EQ(read("CERTIFICATE_FILE=/a\nPUBLIC_KEY_FILE=/p\nCERTIFICATE_FILE=/b\n"
                   "PUBLIC_KEY_FILE=\n"),
              "");
    EXPECT_EQ(fields(*CSSLConfig::getInstance()), "||/b");
}

TEST_F(SslFile, RecordsEverythingElseAtLineZeroAndGoesOn) {
    EXPECT_EQ(read("\n\nunknown=x\n"
                   "CERTIFICATE_FILE = /x/y.crt\n"
                   "certificate_file\n"
                   "=value\n"
                   " #x\n"
                   "CERTIFICATE_FILE=/c\n"),
              "Unknown setting for SSL configuration: UNKNOWN\n"
              "Unknown setting for SSL configuration: CERTIFICATE_FILE \n"
              "Unknown setting for SSL configuration: certificate_file\n"
              "Unknown setting for SSL configuration: =value\n"
              "Unknown setting for SSL configuration:  #x\n");
    EXPECT_EQ(errors.getSize(static_cast<CONFIGERROR_LEVEL>(2)), 5);
    EXPECT_EQ(fields(*CSSLConfig::getInstance()), "||/c");
}

TEST_F(SslFile, RecordsAFileThatCannotBeOpened) {
    const TempDir directory;
    const std::string name = directory.file("none.cfg");
    CShellConfigReader::readSslConfig(name.c_str(), &errors);
    EXPECT_EQ(errors.toString(),
              "Can not open file \"" + name +
                  "\" for SSL configuration! Please make sure that it exists and can be read.\n");
    writeFile(name, "CERTIFICATE_FILE=/c\n");
    errors.clear();
    CShellConfigReader::readSslConfig(name.c_str(), &errors);
    EXPECT_EQ(errors.getSize(), 0);
    EXPECT_EQ(CSSLConfig::getInstance()->getCertificateFile(), "/c");
}

TEST_F(SslFile, IsOneInstanceForTheProcess) {
    CSSLConfig* instance = CSSLConfig::getInstance();
    EXPECT_EQ(CSSLConfig::getInstance(), instance);
    instance->setPrivateKeyFile("a");
    instance->setPublicKeyFile("b");
    instance->setCertificateFile("c");
    EXPECT_EQ(fields(*CSSLConfig::getInstance()), "a|b|c");
}

TEST_F(SslFile, ASecondObjectCopiesAndDiscardsTheInstanceWhenItDies) {
    CSSLConfig::getInstance()->setPublicKeyFile("b");
    CSSLConfig::getInstance()->setCertificateFile("c");
    {
        CSSLConfig other;
        EXPECT_EQ(fields(other), "||");
        other.clone(CSSLConfig::getInstance());
        EXPECT_EQ(fields(other), "|b|c");
        other.setCertificateFile("d");
        EXPECT_EQ(fields(*CSSLConfig::getInstance()), "|b|c");
    }
    EXPECT_EQ(fields(*CSSLConfig::getInstance()), "||");
}

TEST_F(SslFile, TheInstanceItselfMayBeDeleted) {
    CSSLConfig::getInstance()->setCertificateFile("c");
    delete CSSLConfig::getInstance();
    EXPECT_EQ(fields(*CSSLConfig::getInstance()), "||");
}
