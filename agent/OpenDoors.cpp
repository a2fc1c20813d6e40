#include "OpenDoors.h"

#include <algorithm>
#include <unistd.h>

#include "Authorization.h"
#include "CertificateExpiry.h"
#include "NodeFiles.h"
#include "PlantedFiles.h"
#include "Text.h"

namespace opendoors {

namespace {

constexpr char kOpen[] = "open";
constexpr char kClosedBy[] = "closed by";

bool exists(const std::string& file) {
    return ::access(file.c_str(), F_OK) == 0;
}

}  // namespace

std::vector<Door> find(const AgentConfig& config) {
    std::vector<Door> doors;
    if (config.listen.host == "0.0.0.0" || config.listen.host == "::") {
        doors.push_back(
            {"listens on all addresses", "LISTEN=<address>:" + std::to_string(config.listen.port) +
                                             " in kelnode.cfg, of the management network"});
    }
    const std::string list = certificateexpiry::revocationListBeside(config.certificateFile);
    if (!exists(list)) {
        doors.push_back(
            {"revoked certificates are accepted", "crl.pem of the authority as " + list});
    }
    if (!exists(config.getAuthorizationFileName())) {
        doors.push_back({"every master may do everything",
                         "NAME=ROLE for each master in " + config.getAuthorizationFileName()});
    }
    if (config.auditFile.empty()) {
        doors.push_back({"requests are not audited", "AUDIT_FILE=<file> in kelnode.cfg"});
    }
    for (const plantedfiles::Protection& off : plantedfiles::protectionsThatAreOff()) {
        doors.push_back({off.name + " is off", off.remedy});
    }
    const NodeFiles files(config);
    for (const FileTrust::Finding& finding : files.findings()) {
        doors.push_back({finding.path + " " + finding.problem, finding.remedy});
    }
    return doors;
}

std::string table(const std::vector<Door>& doors) {
    if (doors.empty()) {
        return "";
    }
    std::size_t width = sizeof kOpen - 1;
    for (const Door& door : doors) {
        width = std::max(width, Text::printable(door.what).size());
    }
    const auto row = [width](const std::string& what, const std::string& closed) {
        return what + std::string(width - what.size() + 2, ' ') + closed + "\n";
    };
    std::string text = row(kOpen, kClosedBy);
    for (const Door& door : doors) {
        text += row(Text::printable(door.what), Text::printable(door.closed));
    }
    return text;
}

}  // namespace opendoors
