#pragma once

#include <string>

// The key and certificate files for connections to node agents, as the SSL configuration file names
// them. One instance serves the process: it is made by the first getInstance() call, which must
// happen on the main thread, filled before any worker exists, and only read from then on.
class CSSLConfig {
public:
    CSSLConfig();
    CSSLConfig(const CSSLConfig&) = delete;
    CSSLConfig& operator=(const CSSLConfig&) = delete;
    // Deletes the process-wide instance too, even when this is another object: destroy no second
    // object while the settings are still needed. Odd, and stays; docs/compatibility.md.
    virtual ~CSSLConfig();

    // Never null; owned by the class.
    static CSSLConfig* getInstance();

    std::string getPrivateKeyFile() const;
    std::string getPublicKeyFile() const;
    std::string getCertificateFile() const;

    // Set on the process-wide instance, the names of the private key and of the certificate also
    // become those of the process's Dialer, over which connections are made; on any other object
    // they are mere fields.
    void setPrivateKeyFile(std::string fileName);
    void setPublicKeyFile(std::string fileName);
    void setCertificateFile(std::string fileName);

    // Copies the three fields of the other object.
    void clone(CSSLConfig* other);

private:
    void tellDialer() const;

    static CSSLConfig* mSslCfg;

    std::string privateKeyFile;
    std::string publicKeyFile;
    std::string certificateFile;
};
