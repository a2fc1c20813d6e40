#include "CSSLConfig.h"

#include <utility>

#include "Dialer.h"

CSSLConfig* CSSLConfig::mSslCfg = nullptr;

CSSLConfig::CSSLConfig() = default;

CSSLConfig::~CSSLConfig() {
    // The pointer is cleared first: deleting the instance comes through here again.
    CSSLConfig* const instance = mSslCfg;
    mSslCfg = nullptr;
    if (instance != this) {
        delete instance;
    } else {
        Dialer::process().setPrivateKeyFile("");
        Dialer::process().setCertificateFile("");
    }
}

CSSLConfig* CSSLConfig::getInstance() {
    if (mSslCfg == nullptr) {
        mSslCfg = new CSSLConfig;
    }
    return mSslCfg;
}

std::string CSSLConfig::getPrivateKeyFile() const {
    return privateKeyFile;
}

std::string CSSLConfig::getPublicKeyFile() const {
    return publicKeyFile;
}

std::string CSSLConfig::getCertificateFile() const {
    return certificateFile;
}

void CSSLConfig::setPrivateKeyFile(std::string fileName) {
    privateKeyFile = std::move(fileName);
    tellDialer();
}

void CSSLConfig::setPublicKeyFile(std::string fileName) {
    publicKeyFile = std::move(fileName);
}

void CSSLConfig::setCertificateFile(std::string fileName) {
    certificateFile = std::move(fileName);
    tellDialer();
}

void CSSLConfig::tellDialer() const {
    if (this == mSslCfg) {
        Dialer::process().setPrivateKeyFile(privateKeyFile);
        Dialer::process().setCertificateFile(certificateFile);
    }
}

void CSSLConfig::clone(CSSLConfig* other) {
    if (other == nullptr || other == this) {
        return;
    }
    privateKeyFile = other->privateKeyFile;
    publicKeyFile = other->publicKeyFile;
    certificateFile = other->certificateFile;
    tellDialer();
}
