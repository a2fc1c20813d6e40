#include "Agent.h"

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <iostream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include "AgentLog.h"
#include "AuditLog.h"
#include "Authorization.h"
#include "CException.h"
#include "CertificateExpiry.h"
#include "FreedBy.h"
#include "Listener.h"
#include "NodeFiles.h"
#include "OpenDoors.h"
#include "PlantedFiles.h"
#include "Posix.h"
#include "Sandbox.h"
#include "SecretMask.h"
#include "Text.h"
#include "TlsFault.h"
#include "ToolPackage.h"

namespace agent {

namespace {

constexpr char kDefaultNodePath[] = "/opt/kelnode/";
constexpr char kUsage[] =
    "Usage: kelnode [--foreground] [--check] [--ready-fd N] [--version] [--help]\n"
    "       kelnode --verify-audit FILE\n"
    "\n"
    "The kelsh node agent. Its configuration is kelnode.cfg in the node path, which is taken from\n"
    "KELNODE_PATH and defaults to /opt/kelnode/.\n"
    "\n"
    "  --foreground   stay in the foreground (always so; for service files that say it)\n"
    "  --check        validate configuration, rules, certificates and keys; exit with 0 or 1\n"
    "  --ready-fd N   write \"address:port\" and a newline to descriptor N once listening\n"
    "  --verify-audit FILE\n"
    "                 check that no line of an audit was changed, moved or removed; exit with\n"
    "                 0 or 1\n"
    "  --version      print the version and exit\n"
    "  --help         print this text and exit\n"
    "\n"
    "SIGHUP reads configuration and certificates anew, SIGTERM ends the agent.\n";

struct Options {
    bool check = false;
    bool version = false;
    bool help = false;
    int readyFd = -1;
    bool verifyAudit = false;
    std::string auditFile;
};

using Certificate = FreedBy<X509, X509_free>;

// Empty, or what is wrong.
std::string parseOptions(int argc, const char* const* argv, Options& options) {
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word == "--foreground") {
            continue;
        }
        if (word == "--check") {
            options.check = true;
        } else if (word == "--version") {
            options.version = true;
        } else if (word == "--help") {
            options.help = true;
        } else if (word == "--verify-audit") {
            options.verifyAudit = true;
            options.auditFile = i + 1 < argc ? argv[++i] : "";
            if (options.auditFile.empty()) {
                return "--verify-audit needs the name of a file";
            }
        } else if (word == "--ready-fd") {
            const std::string value = i + 1 < argc ? argv[++i] : "";
            const char* const end = value.data() + value.size();
            const auto parsed = std::from_chars(value.data(), end, options.readyFd);
            if (value.empty() || parsed.ec != std::errc() || parsed.ptr != end ||
                options.readyFd < 0) {
                return "--ready-fd needs the number of a descriptor";
            }
        } else {
            return "unknown option \"" + word + "\"";
        }
    }
    return "";
}

std::string checkReadable(const std::string& what, const std::string& file) {
    if (::access(file.c_str(), R_OK) != 0) {
        return what + " " + file + ": " + std::strerror(errno);
    }
    return "";
}

Certificate readCertificate(const std::string& file) {
    const Posix::File stream = Posix::openFile(file, "re");
    return Certificate(stream ? PEM_read_X509(stream.get(), nullptr, nullptr, nullptr) : nullptr);
}

void checkCertificate(const std::string& file, std::list<std::string>& findings) {
    const Certificate certificate = readCertificate(file);
    if (!certificate) {
        return;  // said already, by whoever loaded it
    }
    if (X509_cmp_current_time(X509_get0_notBefore(certificate.get())) > 0) {
        findings.push_back("the certificate " + file +
                           " is not valid yet: check the clock of this machine");
    }
    if (X509_cmp_current_time(X509_get0_notAfter(certificate.get())) < 0) {
        findings.push_back("the certificate " + file + " has expired");
    }
    if (X509_check_purpose(certificate.get(), X509_PURPOSE_SSL_SERVER, 0) != 1 ||
        !tlsfault::namesPurpose(certificate.get())) {
        findings.push_back("the certificate " + file + " is not meant for a server (serverAuth)");
    }
}

void addIfAny(std::list<std::string>& findings, const std::string& finding) {
    if (!finding.empty()) {
        findings.push_back(finding);
    }
}

void checkToolKey(const AgentConfig& config, std::list<std::string>& findings,
                  std::list<std::string>& notes) {
    if (::access(config.toolsKeyFile.c_str(), F_OK) != 0) {
        notes.push_back("there is no tool key " + config.toolsKeyFile +
                        ": packaged tools cannot be run");
        return;
    }
    try {
        toolpackage::ToolKey::load(config.toolsKeyFile);
    } catch (const CException& fault) {
        findings.push_back(fault.getErrMsg());
    }
}

std::vector<ConfigFault> loadOrReport(AgentConfig& config) {
    std::vector<ConfigFault> faults;
    config = AgentConfig::load(nodePath(), faults);
    for (const ConfigFault& fault : faults) {
        std::cerr << "kelnode: " << Text::printable(fault.describe(config.getFileName())) << "\n";
    }
    return faults;
}

int runVerifyAudit(const std::string& file) {
    try {
        const AuditLog::Finding found = AuditLog::verifyFile(file);
        if (found.text.empty()) {
            std::cout << file << ": " << found.lines << " lines, nothing was changed or removed.\n"
                      << std::flush;
            return kExitSuccess;
        }
        std::cerr << "kelnode: " << file
                  << (found.line > 0 ? ", line " + std::to_string(found.line) : "") << ": "
                  << found.text << "\n";
    } catch (const CException& fault) {
        std::cerr << "kelnode: " << fault.getErrMsg() << "\n";
    }
    return kExitFailure;
}

void checkAuthorization(const AgentConfig& config, std::list<std::string>& findings,
                        std::list<std::string>& notes) {
    const std::string file = config.getAuthorizationFileName();
    std::vector<ConfigFault> faults;
    const Authorization rules = Authorization::load(file, faults);
    for (const ConfigFault& fault : faults) {
        findings.push_back(Text::printable(fault.describe(file)));
    }
    for (const std::string& text : rules.missingPrefixes()) {
        notes.push_back(Text::printable(text));
    }
    if (!rules.isRestricted()) {
        notes.push_back("there is no " + file +
                        ": every master of the cluster may do everything here");
    }
}

void checkFiles(const AgentConfig& config, std::list<std::string>& findings,
                std::list<std::string>& notes) {
    const NodeFiles files(config);
    for (const std::string& line : files.looseFiles()) {
        (files.isExcused() ? notes : findings).push_back(Text::printable(line));
    }
    for (const std::string& key : files.openKeys()) {
        findings.push_back(Text::printable(key));
    }
}

void checkAudit(const AgentConfig& config, std::list<std::string>& findings) {
    try {
        AuditLog(config.auditFile).check();
    } catch (const CException& fault) {
        findings.push_back("the audit: " + fault.getErrMsg());
    }
}

int runCheck() {
    AgentConfig config(nodePath());
    const bool reads = loadOrReport(config).empty();
    std::list<std::string> notes;
    const std::list<std::string> findings = check(config, notes);
    for (const std::string& finding : findings) {
        std::cerr << "kelnode: " << finding << "\n";
    }
    for (const std::string& note : notes) {
        std::cerr << "kelnode: note: " << note << "\n";
    }
    if (reads) {
        std::cout << opendoors::table(opendoors::find(config)) << std::flush;
    }
    if (!reads || !findings.empty()) {
        return kExitFailure;
    }
    std::cout << config.getFileName() << " is valid.\n" << std::flush;
    return kExitSuccess;
}

// Returns the limit as it was: jobs get that, since programs that use select() break above it.
rlimit raiseFileLimit() {
    rlimit before{};
    if (::getrlimit(RLIMIT_NOFILE, &before) != 0) {
        return {1024, 1024};
    }
    rlimit raised = before;
    raised.rlim_cur = raised.rlim_max;
    if (::setrlimit(RLIMIT_NOFILE, &raised) != 0) {
        return before;
    }
    return before;
}

void announce(int readyFd, const std::string& address) {
    if (readyFd < 0) {
        return;
    }
    const std::string line = address + "\n";
    ssize_t written = 0;
    do {
        written = ::write(readyFd, line.data(), line.size());
    } while (written < 0 && errno == EINTR);
    // One of the standard streams is needed further on.
    if (readyFd > STDERR_FILENO) {
        ::close(readyFd);
    }
}

int serve(const Options& options) {
    AgentConfig config(nodePath());
    if (!loadOrReport(config).empty()) {
        return kExitFailure;
    }
    const NodeFiles files(config);
    const auto complain = [](const std::string& line) { std::cerr << "kelnode: " << line << "\n"; };
    if (!files.areTrusted(complain)) {
        complain("others could change what this agent believes and runs, so it does not start");
        return kExitFailure;
    }
    AgentLog log;
    try {
        const std::string logFault = log.open(config.logFile);
        if (!logFault.empty()) {
            throw CException(logFault);
        }
        ::umask(S_IWGRP | S_IWOTH);
        if (::chdir("/") != 0) {
            throw CException(std::string("cannot change to /: ") + std::strerror(errno));
        }
        try {
            secretmask::makeKey(config.getMaskKeyFileName());
        } catch (const CException& fault) {
            log.warning(Text::printable(fault.getErrMsg()) + "; no password will be masked");
        }
        files.areTrusted([&](const std::string& line) { log.warning(line); });
        for (const std::string& key : files.openKeys()) {
            log.warning(Text::printable(key));
        }
        for (const std::string& text : plantedfiles::missingProtection()) {
            log.warning(text);
        }
        Listener listener(config, log, raiseFileLimit());
        // Gone readers of the standard streams or of the ready descriptor must not end the agent.
        ::signal(SIGPIPE, SIG_IGN);
        // A limit on the size of files is an error of one transfer, not the end of the agent.
        ::signal(SIGXFSZ, SIG_IGN);
        listener.open();
        const std::string address = listener.boundAddress();
        log.info(std::string("version ") + KELNODE_VERSION + " listening on " + address);
        announce(options.readyFd, address);
        listener.run();
    } catch (const CException& fault) {
        std::cerr << "kelnode: " << fault.getErrMsg() << "\n";
        log.error(Text::printable(fault.getErrMsg()));
        return kExitFailure;
    }
    return kExitSuccess;
}

}  // namespace

std::string nodePath() {
    const char* const value = std::getenv("KELNODE_PATH");
    std::string path = value != nullptr && *value != '\0' ? value : kDefaultNodePath;
    if (path.back() != '/') {
        path += '/';
    }
    return path;
}

std::list<std::string> check(const AgentConfig& config, std::list<std::string>& notes) {
    std::list<std::string> findings;
    addIfAny(findings, checkReadable("the certificate", config.certificateFile));
    addIfAny(findings, checkReadable("the CA certificate", config.caFile));
    const std::string& keyFile =
        config.privateKeyFile.empty() ? config.certificateFile : config.privateKeyFile;
    if (keyFile != config.certificateFile) {
        addIfAny(findings, checkReadable("the private key", keyFile));
    }
    if (findings.empty()) {
        try {
            Listener::loadContext(config);
        } catch (const CException& fault) {
            findings.push_back(fault.getErrMsg());
        }
        checkCertificate(config.certificateFile, findings);
    }
    checkToolKey(config, findings, notes);
    checkAuthorization(config, findings, notes);
    checkFiles(config, findings, notes);
    notes.splice(notes.end(), plantedfiles::missingProtection());
    checkAudit(config, findings);
    notes.splice(notes.end(), certificateexpiry::warnings(
                                  {config.certificateFile, config.caFile,
                                   certificateexpiry::revocationListBeside(config.certificateFile)},
                                  ::time(nullptr)));
    // "/" stands for the directory that only a running agent has.
    std::list<std::string> missing;
    const bool isConfined = sandbox::probe("/", missing).isComplete();
    const bool mayStart = isConfined || config.allowsUnconfined || ::geteuid() != 0;
    std::list<std::string>& where = mayStart ? notes : findings;
    where.splice(where.end(), missing);
    if (::access(config.getNodePath().c_str(), R_OK | W_OK | X_OK) != 0) {
        findings.push_back("the node path " + config.getNodePath() + ": " + std::strerror(errno));
    }
    if (!config.logFile.empty()) {
        addIfAny(findings, AgentLog().open(config.logFile));
    }
    return findings;
}

int run(int argc, const char* const* argv) {
    Options options;
    const std::string fault = parseOptions(argc, argv, options);
    if (!fault.empty()) {
        std::cerr << "kelnode: " << fault << "\n" << kUsage;
        return kExitUsage;
    }
    if (options.help) {
        std::cout << kUsage << std::flush;
        return kExitSuccess;
    }
    if (options.version) {
        std::cout << "kelnode " << KELNODE_VERSION << "\n" << std::flush;
        return kExitSuccess;
    }
    if (options.verifyAudit) {
        return runVerifyAudit(options.auditFile);
    }
    return options.check ? runCheck() : serve(options);
}

}  // namespace agent
