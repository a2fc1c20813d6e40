// The audit of a real agent, with every single bit of it changed, one after the other.

#include <functional>
#include <string>
#include <vector>

#include "AuditLog.h"
#include "Figure.h"
#include "LocalAgent.h"

namespace {

// How many of the text's bits can be changed unseen.
long unseen(std::string text, const std::function<bool(const std::string&)>& isWhole) {
    long count = 0;
    for (char& byte : text) {
        for (unsigned int bit = 0; bit < 8; ++bit) {
            byte = static_cast<char>(byte ^ (1 << bit));
            count += isWhole(text) ? 1 : 0;
            byte = static_cast<char>(byte ^ (1 << bit));
        }
    }
    return count;
}

}  // namespace

std::vector<Figure> changeAudit(const Scale& scale) {
    LocalAgent::Options options;
    options.settings["AUDIT_FILE"] = "audit.log";
    LocalAgent agent(options);
    const auto client = agent.connect();
    for (long i = 0; i < scale.pick(12, 2); ++i) {
        CResult result;
        client->execute("echo " + std::to_string(i), 10000, &result);
        client->isFileExistedAtSlaveNode("/etc/passwd");
    }
    const std::string lines = LocalAgent::read(agent.nodePath() + "audit.log");
    const std::string head = LocalAgent::read(agent.nodePath() + "audit.log.head");
    Figure figure;
    figure.attack = "single-bit changes to an audit";
    figure.tries = static_cast<long>(8 * (lines.size() + head.size()));
    const AuditLog::Finding untouched = AuditLog::verify(lines, head);
    const long missed = unseen(lines,
                               [&](const std::string& changed) {
                                   return AuditLog::verify(changed, head).text.empty();
                               }) +
                        unseen(head, [&](const std::string& changed) {
                            return AuditLog::verify(lines, changed).text.empty();
                        });
    figure.survived = figure.tries - missed;
    figure.remark = std::to_string(untouched.lines) + " lines";
    figure.isReached = missed == 0 && untouched.text.empty() && untouched.lines > 0;
    return {figure};
}
