#include <algorithm>
#include <arpa/inet.h>
#include <map>
#include <netinet/in.h>

#include "CNode.h"
#include "CShellConfigReader.h"
#include "CShellExecutionContext.h"
#include "CUtil.h"
#include "ConfigLineReader.h"
#include "LintReport.h"
#include "NodeConfigFile.h"
#include "Posix.h"

namespace {

// Runs the shell's own reader, as if every agent answered what is configured.
void readWithShell(LintReport& report) {
    const Posix::File file = Posix::openFile(report.getFileName(), "re");
    if (!file) {
        return;
    }
    CShellExecutionContext context{CShellExecutionContext::Temporary()};
    ConfigErrorCollector errors;
    const auto asConfigured = [](const CNode& node) {
        return NodeAgentAnswer{true, node.getMac()};
    };
    NodeConfigFile(context, &errors, asConfigured, 1).read(file.get());
    report.add(errors);
}

class NodeLines {
public:
    explicit NodeLines(LintReport& toReport) : report(toReport) {}

    void check() {
        for (const LintLine& line : report.getLines()) {
            if (ConfigLineReader::isSkipped(line.text)) {
                continue;
            }
            if (line.text.find_first_of(" \t") != std::string::npos) {
                report.warning(line.number, "a blank belongs to the name or address beside it");
            }
            if (line.text.front() == '[') {
                enter(line);
            } else if (section == "[node]") {
                checkNode(line);
            } else if (section == "[group]") {
                checkGroup(line);
            }
        }
        if (nodes == 0) {
            report.warning(0, "defines no node");
        }
    }

private:
    void enter(const LintLine& line) {
        if (line.text == "[node]" || line.text == "[group]") {
            section = line.text;
        } else {
            report.warning(line.number, "\"" + line.text + "\" is neither [node] nor [group]");
        }
    }

    void checkNode(const LintLine& line) {
        const std::string::size_type equals = line.text.find('=');
        const std::string::size_type comma = line.text.find(',', equals);
        const std::string::size_type colon = line.text.find(':', comma);
        if (colon == std::string::npos) {
            return;  // the reader has said so
        }
        ++nodes;
        const std::string name = line.text.substr(0, equals);
        std::string mac = line.text.substr(equals + 1, comma - equals - 1);
        const std::string ip = line.text.substr(comma + 1, colon - comma - 1);
        const std::string port = line.text.substr(colon + 1);
        if (name.empty()) {
            report.warning(line.number, "the node has no name");
        }
        if (!CUtil::validateMACaddr(mac, ":")) {
            report.warning(line.number, "\"" + mac + "\" is no MAC address like 02:00:00:AA:BB:01");
        }
        in_addr address{};
        if (::inet_pton(AF_INET, ip.c_str(), &address) != 1) {
            report.warning(line.number, "\"" + ip + "\" is no IPv4 address");
        }
        const bool digits =
            !port.empty() && port.find_first_not_of("0123456789") == std::string::npos;
        if (!digits || port.size() > 5 || std::stoul(port) == 0 || std::stoul(port) > 65535) {
            report.warning(line.number, "\"" + port + "\" is no port from 1 to 65535");
        }
        CUtil::toUpper(mac);
        checkFirst(line.number, addresses, ip + ":" + port, "the address");
        checkFirst(line.number, macs, mac, "the MAC address");
    }

    void checkGroup(const LintLine& line) {
        std::string name;
        std::string members;
        if (!ConfigLineReader::splitSetting(line.text, name, members)) {
            return;
        }
        checkFirst(line.number, groups, name, "the group");
        if (std::all_of(members.begin(), members.end(), [](char c) { return c == ','; })) {
            report.warning(line.number, "the group has no members");
        }
    }

    void checkFirst(int line, std::map<std::string, int>& seen, const std::string& what,
                    const std::string& kind) {
        const auto inserted = seen.emplace(what, line);
        if (!inserted.second) {
            report.warning(line, kind + " \"" + what + "\" stands in line " +
                                     std::to_string(inserted.first->second) + " already");
        }
    }

    LintReport& report;
    std::string section;
    int nodes = 0;
    std::map<std::string, int> addresses;
    std::map<std::string, int> macs;
    std::map<std::string, int> groups;
};

}  // namespace

void lintNodeFile(LintReport& report) {
    readWithShell(report);
    NodeLines(report).check();
}
