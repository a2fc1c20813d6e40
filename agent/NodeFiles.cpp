#include "NodeFiles.h"

#include <cstdlib>
#include <set>
#include <sys/stat.h>

#include "AuditLog.h"
#include "CertificateExpiry.h"
#include "Text.h"

namespace {

bool isExcusedByEnvironment() {
    const char* const value = std::getenv(NodeFiles::kExcuse);
    return value != nullptr && std::string(value) == "yes";
}

}  // namespace

NodeFiles::NodeFiles(const AgentConfig& config) : excused(false) {
    configuration.examine(config.getFileName());
    others.examine(config.getNodePath());
    std::vector<std::string> secrets{
        config.privateKeyFile.empty() ? config.certificateFile : config.privateKeyFile,
        config.toolsKeyFile, config.getMaskKeyFileName()};
    for (const std::string& file :
         {config.getAuthorizationFileName(), config.certificateFile, config.caFile,
          certificateexpiry::revocationListBeside(config.certificateFile), config.getRunPath(),
          config.logFile}) {
        if (!file.empty()) {
            others.examine(file);
        }
    }
    if (!config.auditFile.empty()) {
        others.examine(config.auditFile);
        others.examine(AuditLog::headFileOf(config.auditFile));
    }
    for (const std::string& key : secrets) {
        others.examine(key);
        const FileTrust::Finding open = FileTrust::examineSecret(key);
        if (!open.path.empty()) {
            keys.push_back(open);
        }
    }
    others.examineEntries(config.getNodePath() + "tools");
    excused =
        isExcusedByEnvironment() || (config.allowsLooseFiles && configuration.findings().empty());
}

std::vector<FileTrust::Finding> NodeFiles::findings() const {
    std::vector<FileTrust::Finding> all;
    std::set<std::string> seen;
    for (const auto* const part : {&configuration.findings(), &others.findings(), &keys}) {
        for (const FileTrust::Finding& finding : *part) {
            if (seen.insert(finding.text()).second) {
                all.push_back(finding);
            }
        }
    }
    return all;
}

std::vector<std::string> NodeFiles::looseFiles() const {
    std::vector<std::string> lines;
    std::set<std::string> seen;
    for (const FileTrust* const trust : {&configuration, &others}) {
        for (const FileTrust::Finding& finding : trust->findings()) {
            if (seen.insert(finding.text()).second) {
                lines.push_back(finding.text());
            }
        }
    }
    return lines;
}

std::vector<std::string> NodeFiles::openKeys() const {
    std::vector<std::string> lines;
    for (const FileTrust::Finding& key : keys) {
        lines.push_back("the key " + key.text());
    }
    return lines;
}

bool NodeFiles::areTrusted(const Say& say) const {
    const std::vector<std::string> loose = looseFiles();
    for (const std::string& line : loose) {
        say(Text::printable(line));
    }
    if (!loose.empty() && excused) {
        say("files that others could change are used all the same, as ALLOW_LOOSE_FILES wants it");
    }
    return loose.empty() || excused;
}
