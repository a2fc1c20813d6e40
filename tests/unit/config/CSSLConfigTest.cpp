#include <gtest/gtest.h>

#include "CSSLConfig.h"

namespace {

// The destructor of any object discards the process-wide instance: each case starts afresh.
class CSSLConfigTest : public testing::Test {
protected:
    void SetUp() override { discardInstance(); }
    void TearDown() override {
        CSSLConfig::getInstance()->setPrivateKeyFile("");
        discardInstance();
    }

    static void discardInstance() { const CSSLConfig any; }
};

}  // namespace

TEST_F(CSSLConfigTest, HasOneInstanceThatStartsEmpty) {
    CSSLConfig* config = CSSLConfig::getInstance();
    ASSERT_NE(nullptr, config);
    EXPECT_EQ(config, CSSLConfig::getInstance());
    EXPECT_EQ("", config->getPrivateKeyFile());
    EXPECT_EQ("", config->getPublicKeyFile());
    EXPECT_EQ("", config->getCertificateFile());
}

TEST_F(CSSLConfigTest, HoldsEachFile) {
    CSSLConfig* config = CSSLConfig::getInstance();
    config->setPrivateKeyFile("/k");
    config->setPublicKeyFile("/p");
    config->setCertificateFile("/c");
    EXPECT_EQ("/k", config->getPrivateKeyFile());
    EXPECT_EQ("/p", config->getPublicKeyFile());
    EXPECT_EQ("/c", config->getCertificateFile());
}

TEST_F(CSSLConfigTest, ClonesAllFields) {
    CSSLConfig* config = CSSLConfig::getInstance();
    config->setPrivateKeyFile("/k");
    config->setPublicKeyFile("/p");
    config->setCertificateFile("/c");
    CSSLConfig copy;
    copy.clone(config);
    EXPECT_EQ("/k", copy.getPrivateKeyFile());
    EXPECT_EQ("/p", copy.getPublicKeyFile());
    EXPECT_EQ("/c", copy.getCertificateFile());
    copy.setCertificateFile("/d");
    EXPECT_EQ("/c", config->getCertificateFile());
}

TEST_F(CSSLConfigTest, CloneOfItselfOrOfNothingChangesNothing) {
    CSSLConfig* config = CSSLConfig::getInstance();
    config->setCertificateFile("/c");
    config->clone(config);
    config->clone(nullptr);
    EXPECT_EQ("/c", config->getCertificateFile());
}

TEST_F(CSSLConfigTest, DestroyingAnotherObjectDiscardsTheInstance) {
    CSSLConfig::getInstance()->setCertificateFile("/c");
    { const CSSLConfig other; }
    EXPECT_EQ("", CSSLConfig::getInstance()->getCertificateFile());
}

TEST_F(CSSLConfigTest, DestroyingTheInstanceItselfLeavesRoomForANewOne) {
    CSSLConfig::getInstance()->setCertificateFile("/c");
    delete CSSLConfig::getInstance();
    EXPECT_EQ("", CSSLConfig::getInstance()->getCertificateFile());
}
