#include "CNodeSession.h"

#include <algorithm>

#include "CNode.h"
#include "CShellCommandSet_Basic.h"
#include "CShellExecutionContext.h"
#include "CUtil.h"
#include "NodeAccess.h"
#include "NodeResult.h"
#include "PathText.h"
#include "SSLClient.h"

namespace {

// Enough for an init system to accept the request. When the node goes down without an answer, the
// result of a finished flash must not wait for the time-out of the flash.
constexpr unsigned int kRebootTimeOutMs = 30000;

CNode& required(CNode* node) {
    if (node == nullptr) {
        throw CException("The command needs a node.");
    }
    return *node;
}

// While it lives, jobs are sent as jobs that are not cut short on the node.
class UninterruptibleJobs {
public:
    UninterruptibleJobs(SSLClient& connected, bool wanted) : client(connected) {
        client.setUninterruptible(wanted);
    }
    UninterruptibleJobs(const UninterruptibleJobs&) = delete;
    UninterruptibleJobs& operator=(const UninterruptibleJobs&) = delete;
    ~UninterruptibleJobs() { client.setUninterruptible(false); }

private:
    SSLClient& client;
};

std::string afterText(const std::string& output) {
    std::string text = output;
    CUtil::trim(text);
    return text.empty() ? "" : "\n" + text;
}

std::string inMs(unsigned int milliseconds) {
    return std::to_string(milliseconds) + " ms";
}

std::string programOf(const PackagedRun& run) {
    const std::string& package = run.packagedFiles.front();
    return package.substr(0, package.rfind(".enc"));
}

std::string timedOutText(const PackagedRun& run, unsigned int timeOutMs, const CResult& outcome) {
    std::string text =
        programOf(run) + " did not end within its time-out of " + inMs(timeOutMs) + ". ";
    if (!run.uninterruptible) {
        text += "It was ended.";
    } else {
        text += "It is not interrupted and goes on at the node";
        text += run.log.empty() ? "." : "; its log is " + run.log + " there.";
    }
    return text + afterText(outcome.getRunSummary());
}

}  // namespace

CNodeSession::CNodeSession(CNode* target, unsigned int timeOut)
    : node(required(target)), timeOutMs(timeOut) {}

CNodeSession::~CNodeSession() = default;

SSLClient& CNodeSession::agent() {
    if (!client) {
        client = nodeaccess::connect(node, timeOutMs);
    }
    return *client;
}

std::string CNodeSession::nodeName() const {
    return node.getName();
}

const std::string& CNodeSession::nodePath() {
    if (installPath.empty()) {
        // Asked each time, since the node decides; docs/compatibility.md.
        std::string answer = readBack("echo $KELNODE_PATH");
        CUtil::removeTailNewline(&answer);
        if (answer.empty() || answer.back() != '/') {
            answer += '/';
        }
        installPath = answer;
    }
    return installPath;
}

std::string CNodeSession::shellPath(const std::string& below) {
    return pathtext::shellWord(nodePath() + below);
}

CResult CNodeSession::execute(const std::string& commandLine, bool uninterruptible) {
    CResult outcome;
    SSLClient& connected = agent();
    const UninterruptibleJobs guard(connected, uninterruptible);
    connected.execute(commandLine, timeOutMs, &outcome);
    return outcome;
}

// Opening a file for writing changes its times or makes a new file, so two runs never have the same
// answer. The file is not removed instead: another master's run may not have read it back yet.
std::string CNodeSession::identityOf(const std::string& file) {
    return readBack("stat -L -c '%d:%i:%s:%y:%z' " + pathtext::shellWord(file) + " 2>/dev/null");
}

CNodeSession::LoggedJob CNodeSession::executeLogged(const std::string& commandLine,
                                                    const std::string& log) {
    const std::string before = identityOf(log);
    LoggedJob job;
    job.outcome = execute(commandLine, true);
    if (job.outcome.getRunStatus() == EXEC_TIMED_OUT) {
        throw CommandStopped(EXEC_TIMED_OUT,
                             "The run did not end within its time-out of " + inMs(timeOutMs) +
                                 ". It is not interrupted and goes on at the node; its log is " +
                                 log + " there." + afterText(job.outcome.getRunSummary()));
    }
    const std::string after = identityOf(log);
    job.logIsNew = !after.empty() && after != before;
    return job;
}

CResult CNodeSession::run(const PackagedRun& run) {
    const std::string& path = nodePath();
    const std::string before = run.log.empty() ? "" : identityOf(run.log);
    CResult outcome;
    {
        SSLClient& connected = agent();
        const UninterruptibleJobs guard(connected, run.uninterruptible);
        connected.executeEncryptedBinary(run.preCommand, run.arguments, path, run.packagedFiles,
                                         run.companionFiles, timeOutMs, &outcome);
    }
    if (outcome.getRunStatus() == EXEC_TIMED_OUT) {
        throw CommandStopped(EXEC_TIMED_OUT, timedOutText(run, timeOutMs, outcome));
    }
    if (run.log.empty()) {
        return outcome;
    }
    const std::string after = identityOf(run.log);
    if (after.empty() || after == before) {
        throw CommandStopped(EXEC_FAILURE, programOf(run) + " left no output in " + run.log + "." +
                                               afterText(outcome.getRunSummary()));
    }
    return outcome;
}

std::string CNodeSession::readBack(const std::string& commandLine) {
    const CResult outcome = execute(commandLine);
    if (outcome.getRunStatus() == EXEC_TIMED_OUT) {
        throw CommandStopped(EXEC_TIMED_OUT, "\"" + commandLine + "\" did not end within " +
                                                 inMs(timeOutMs) + " at the node.");
    }
    return outcome.getRunSummary();
}

bool CNodeSession::readsBack(const std::string& commandLine, const std::string& phrase) {
    return readBack(commandLine).find(phrase) != std::string::npos;
}

std::string CNodeSession::readFile(const std::string& file) {
    const CResult outcome = execute("cat " + pathtext::shellWord(file));
    if (outcome.getRunStatus() != EXEC_SUCCESS) {
        throw CommandStopped(outcome.getRunStatus(), "The output of the run cannot be read back." +
                                                         afterText(outcome.getRunSummary()));
    }
    return outcome.getRunSummary();
}

CResult CNodeSession::transfer(const std::string& command, const std::string& path) {
    if (client) {
        // What a run has just written is fetched before anybody else's run.
        client->keepTurn();
    }
    client.reset();
    CShellExecutionContext context{CShellExecutionContext::Temporary()};
    CShellCommandSet_Basic basic(&context);
    CResult outcome;
    // A line that is not understood leaves the result unchanged; that must not look like a finished
    // copy.
    outcome.setRunStatus(EXEC_FAILURE);
    outcome.setRunSummary("File \"" + path + "\" cannot be copied: its name is no option value.");
    basic.execute(command + " -f " + pathtext::optionValue(path), &node, outcome, timeOutMs);
    return outcome;
}

void CNodeSession::saveFile(const std::string& path, const std::string& missingMessage) {
    const CResult copied = transfer("save file", path);
    if (copied.getRunStatus() != EXEC_SUCCESS && CUtil::isFileExisted(path)) {
        throw CommandStopped(copied.getRunStatus(), copied.getRunSummary());
    }
    // An earlier command may have left a file of that name on the node; it is not the one that was
    // named.
    if (copied.getRunStatus() != EXEC_SUCCESS || !agent().isFileExistedAtSlaveNode(path)) {
        throw CommandStopped(EXEC_FAILURE, missingMessage);
    }
}

CResult CNodeSession::getFile(const std::string& path) {
    return transfer("get file", path);
}

void CNodeSession::makeDirectoryOf(const std::string& path) {
    if (path.empty() || path.front() != '/') {
        throw CommandStopped(EXEC_FAILURE, "File \"" + path + "\": the path must be absolute.");
    }
    const CResult made = execute("mkdir -p " + pathtext::shellWord(pathtext::directoryOf(path)));
    if (made.getRunStatus() != EXEC_SUCCESS) {
        throw CommandStopped(made.getRunStatus(), "The directory of \"" + path +
                                                      "\" cannot be made at the node." +
                                                      afterText(made.getRunSummary()));
    }
}

void CNodeSession::reboot() {
    CResult separate;
    const unsigned int limit =
        timeOutMs == 0 ? kRebootTimeOutMs : std::min(timeOutMs, kRebootTimeOutMs);
    try {
        agent().execute("reboot", limit, &separate);
    } catch (const CException&) {
        // A node that goes down closes the connection.
        client.reset();
    }
}

void conclude(CResult& result, const CResult& run, int status, const std::string& summary) {
    result.setRunStatus(status);
    result.setRunSummary(summary);
    result.setExitCode(run.getExitCode());
    result.setExitOutput(run.getRunSummary());
}

void reportFailure(const CException& failure, CResult& result) {
    noderesult::fail(result, failure);
    if (const auto* stopped = dynamic_cast<const CommandStopped*>(&failure)) {
        result.setRunStatus(stopped->getRunStatus());
    }
}

void showAnswer(CNodeSession& session, const PackagedRun& run, CResult& result) {
    const CResult outcome = session.run(run);
    const std::string answer = session.readFile(run.log);
    if (!answer.empty() || outcome.getExitCode() == 0) {
        conclude(result, outcome, EXEC_SUCCESS, answer);
        return;
    }
    conclude(result, outcome, EXEC_FAILURE,
             programOf(run) + " ended with exit code " + std::to_string(outcome.getExitCode()) +
                 " and without an answer." + afterText(outcome.getRunSummary()));
}
