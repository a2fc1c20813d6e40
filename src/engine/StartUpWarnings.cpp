#include "StartUpWarnings.h"

#include <cstddef>
#include <iostream>
#include <unistd.h>

#include "CUtil.h"
#include "ConfigErrorCollector.h"
#include "ConfigFileLines.h"
#include "NodeWarning.h"
#include "OutputFilter.h"
#include "ShellLogging.h"

namespace {

constexpr std::size_t kNodesNamed = 8;

}  // namespace

void StartUpWarnings::take(const ConfigErrorCollector& errors, ShellLogging& log) {
    for (const ConfigError* error : errors.getErrorList()) {
        if (error->getLevel() != CONFIG_WARNING) {
            continue;
        }
        log.warn(error->toString());
        const auto* aboutNode = dynamic_cast<const NodeWarning*>(error);
        if (aboutNode != nullptr && aboutNode->isUnreachable()) {
            unreachableNodes.push_back(aboutNode->getNodeName());
        } else {
            texts.push_back(error->getErrorMessage());
        }
    }
}

void StartUpWarnings::logSilentFaults(const std::string& commandFile, ShellLogging& log) {
    if (!CUtil::isFileExisted(commandFile)) {
        return;
    }
    ConfigFileLines file;
    const std::string reason = file.read(commandFile);
    if (!reason.empty()) {
        log.warn(commandFile + ": " + reason);
    }
    for (const ConfigFileLines::Line& found : file.getWarnings()) {
        log.warn(commandFile + ":" + std::to_string(found.number) + ": " + found.text);
    }
}

void StartUpWarnings::show() const {
    if (::isatty(STDERR_FILENO) != 1) {
        return;
    }
    for (const std::string& text : texts) {
        std::cerr << escapeForTerminal(text) << "\n";
    }
    std::string names;
    std::size_t named = 0;
    for (const std::string& node : unreachableNodes) {
        if (named++ == kNodesNamed) {
            break;
        }
        names += (names.empty() ? "" : ", ") + node;
    }
    if (!unreachableNodes.empty()) {
        std::cerr << unreachableNodes.size()
                  << " node(s) cannot be reached: " << escapeForTerminal(names)
                  << (unreachableNodes.size() > kNodesNamed ? ", ... (the rest is in the log)" : "")
                  << "\n";
    }
}
