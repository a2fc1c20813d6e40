#pragma once

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

// Where the agent listens.
struct ListenAddress {
    std::string host;  // an IPv4 or IPv6 literal, without brackets
    unsigned int port = 0;
};

// The agent's configuration file, kelnode.cfg: lines KEY=VALUE, "#" comments, nothing trimmed.
// A value type without locks; made once at start and anew at each reload.
class AgentConfig {
public:
    static constexpr unsigned int kDefaultPort = 4422;
    static constexpr unsigned int kDefaultMaxSessions = 1024;

    struct Fault {
        int line;  // 0: the file as a whole
        std::string text;
    };

    // The defaults for a node path, which gets its trailing "/" here.
    explicit AgentConfig(std::string nodePath);

    // Reads settings from the stream, which stays the caller's. Every fault is added to faults and
    // its line is ignored; relative file names are taken from the node path.
    void read(FILE* stream, std::vector<Fault>& faults);
    // Reads nodePath + "kelnode.cfg". A file that cannot be opened is a fault of line 0.
    static AgentConfig load(const std::string& nodePath, std::vector<Fault>& faults);

    // "line 3: ..." or the bare text for line 0, with the file name in front.
    static std::string describe(const std::string& fileName, const Fault& fault);

    const std::string& getNodePath() const { return nodePath; }
    std::string getFileName() const { return nodePath + "kelnode.cfg"; }
    std::string getAuthorizationFileName() const { return nodePath + "authz.cfg"; }
    std::string getRunPath() const { return nodePath + "run/"; }

    ListenAddress listen;
    std::string certificateFile;
    // Empty: the key stands in the certificate file, as it is taken to do when the configuration
    // names a certificate and no key.
    std::string privateKeyFile;
    std::string caFile;
    std::string macAddress;  // empty: ask the interface
    std::string toolsKeyFile;
    unsigned int maxSessions = kDefaultMaxSessions;
    std::string logFile;    // empty: syslog
    std::string auditFile;  // empty: no audit

private:
    // The reason why the setting is refused, or an empty text.
    std::string apply(const std::string& key, const std::string& value);
    std::string absolute(const std::string& name) const;

    std::string nodePath;
};

// Reads "address:port" or "[v6]:port". Returns the reason for a refusal, or an empty text.
std::string parseListenAddress(const std::string& text, ListenAddress& address);

// How the lines of one of the agent's files are spoken of in faults.
struct SettingLines {
    const char* form;      // "KEY=VALUE"
    const char* repeated;  // " is set a second time"
};

// Reads setting lines from the stream, which stays the caller's, and hands each key and value,
// split at the first "=", to apply, which returns the reason for a refusal or an empty text. A key
// given twice, a line too long and one without "=" are faults; what is at fault is left out.
void readSettings(FILE* stream, const SettingLines& lines,
                  const std::function<std::string(const std::string&, const std::string&)>& apply,
                  std::vector<AgentConfig::Fault>& faults);
