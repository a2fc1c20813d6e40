#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "ListenAddress.h"
#include "SettingsReader.h"

// The agent's configuration file, kelnode.cfg: lines KEY=VALUE, "#" comments, nothing trimmed.
// A value type without locks; made once at start and anew at each reload.
class AgentConfig {
public:
    static constexpr unsigned int kDefaultPort = 4422;
    static constexpr unsigned int kDefaultMaxSessions = 1024;
    static constexpr unsigned int kDefaultSessionsPerCertificate = 256;
    static constexpr unsigned int kDefaultSessionsPerSource = 512;

    // The defaults for a node path, which gets its trailing "/" here.
    explicit AgentConfig(std::string nodePath);

    // Reads settings from the stream, which stays the caller's. Every fault is added to faults and
    // its line is ignored; relative file names are taken from the node path.
    void read(FILE* stream, std::vector<ConfigFault>& faults);
    // Reads nodePath + "kelnode.cfg". A file that cannot be opened is a fault of line 0.
    static AgentConfig load(const std::string& nodePath, std::vector<ConfigFault>& faults);

    const std::string& getNodePath() const { return nodePath; }
    std::string getFileName() const { return nodePath + "kelnode.cfg"; }
    std::string getAuthorizationFileName() const { return nodePath + "authz.cfg"; }
    std::string getRunPath() const { return nodePath + "run/"; }
    // Of the key for lines in which passwords are masked.
    std::string getMaskKeyFileName() const { return nodePath + "maskkey"; }

    ListenAddress listen;
    std::string certificateFile;
    // Empty: the key stands in the certificate file, as it is taken to do when the configuration
    // names a certificate and no key.
    std::string privateKeyFile;
    std::string caFile;
    std::string macAddress;  // empty: ask the interface
    std::string toolsKeyFile;
    unsigned int maxSessions = kDefaultMaxSessions;
    unsigned int sessionsPerCertificate = kDefaultSessionsPerCertificate;
    unsigned int sessionsPerSource = kDefaultSessionsPerSource;
    std::string logFile;    // empty: syslog
    std::string auditFile;  // empty: no audit
    // Start although others could change what is believed and run.
    bool allowsLooseFiles = false;
    // Start as root although the network side of sessions cannot be confined.
    bool allowsUnconfined = false;

private:
    // The reason why the setting is refused, or an empty text.
    std::string apply(const std::string& key, const std::string& value);
    std::string absolute(const std::string& name) const;

    std::string nodePath;
};
