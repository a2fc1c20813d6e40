#include "CShell.h"

#include <climits>
#include <ctime>
#include <iostream>
#include <iterator>
#include <optional>
#include <sys/resource.h>
#include <unistd.h>
#include <utility>

#include "CException.h"
#include "CSSLConfig.h"
#include "CShellConfigReader.h"
#include "CShellExecutionContext.h"
#include "CSystemEnvironment.h"
#include "CThreadWrapperOfCommand.h"
#include "CUtil.h"
#include "CertificateExpiry.h"
#include "ClassicInterface.h"
#include "ClassicResults.h"
#include "CommandEngine.h"
#include "CommandSequence.h"
#include "ConfigErrorCollector.h"
#include "FileTrust.h"
#include "KelshConfig.h"
#include "ModernInterface.h"
#include "NodeAgentQuery.h"
#include "OpenSslLocks.h"
#include "RegisteredSets.h"
#include "ShellLogging.h"

namespace {

constexpr int kExitConfiguration = 2;
constexpr char kValidateOption[] = "--validate";
constexpr char kSequenceFile[] = "cmdseq.cfg";
constexpr char kLogProperties[] = "log4cxx.properties";
constexpr char kDumpDirectory[] = "cmdexedump/";

// Each worker needs a socket; the usual soft limit would end at about a thousand of them.
void raiseDescriptorLimit() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        static_cast<void>(::setrlimit(RLIMIT_NOFILE, &limit));
    }
}

std::string installPathOfShell() {
    const CSystemEnvironment environment;
    return environment.isDefaultKelshPathUsed() ? "" : environment.getKelshPath();
}

// As "hostname" prints it; a machine without that program has a name all the same.
std::string hostNameOfMaster() {
    std::string name;
    std::string complaint;
    const bool asked = CUtil::exec_cmd("hostname", &name, &complaint) == 0;
    CUtil::removeTailNewline(&name);
    if (asked && !name.empty()) {
        return name;
    }
    char own[HOST_NAME_MAX + 1] = {};
    return ::gethostname(own, sizeof own - 1) == 0 ? own : "";
}

// Root runs what these files say, so nobody else may write them. Said in the log alone: scripts
// have read the shell's output for years.
void logLooseFiles(const CShellExecutionContext& ctx, ShellLogging& log) {
    FileTrust trust;
    for (const std::string& file :
         {ctx.getCmdCfgFileName(), ctx.getNodeCfgFileName(), ctx.getSslCfgFileName()}) {
        trust.examine(file);
    }
    for (const FileTrust::Finding& finding : trust.findings()) {
        log.warn(finding.text());
    }
}

// While there is time to renew it: the day it ends no node listens to this master any more.
void warnOfExpiry() {
    if (::isatty(STDERR_FILENO) != 1) {
        return;
    }
    const std::string file = CSSLConfig::getInstance()->getCertificateFile();
    for (const std::string& warning : certificateexpiry::warnings(
             {file, certificateexpiry::revocationListBeside(file)}, std::time(nullptr))) {
        std::cerr << warning << std::endl;
    }
}

// What a shell with live workers leaves behind. The list keeps it reachable, so that a leak checker
// can tell it from a mistake, and is never destroyed itself.
void keepForWorkers(std::unique_ptr<CShellExecutionContext> context) {
    static auto* kept = new std::list<std::unique_ptr<CShellExecutionContext>>;
    kept->push_back(std::move(context));
}

}  // namespace

CShell::CShell()
    : context(std::make_unique<CShellExecutionContext>()),
      installPath(installPathOfShell()),
      sequence(std::make_unique<CommandSequence>(installPath + kSequenceFile)),
      log(std::make_unique<ShellLogging>()),
      engine(std::make_unique<CommandEngine>(*context, *sequence, *log,
                                             installPath + kDumpDirectory)) {
    // Made here, on the main thread: its creation is not guarded against two first callers.
    CSSLConfig::getInstance();
}

CShell::~CShell() {
    if (runningWorkers() != 0) {
        keepForWorkers(std::move(context));
    }
}

int CShell::run(int argc, char** argv) {
    shellsignals::install();
    raiseDescriptorLimit();
    const std::unique_ptr<ShellInterface> interface = makeInterface();
    if (!interface) {
        return kExitConfiguration;
    }
    std::list<std::string> words = interface->words(argc, argv);
    if (const std::optional<int> status = interface->answer(words)) {
        return *status;
    }
    ConfigErrorCollector errors;
    if (processProgramOption(words, *context, &errors) != 0) {
        return 0;
    }
    if (errors.getSize(CONFIG_ERROR) > 0) {
        std::cout << errors.toString() << std::flush;
        return kExitConfiguration;
    }
    if (words.empty()) {
        return runInteractive(*interface, words);
    }
    for (const std::string& word : words) {
        if (word.find(kValidateOption) != std::string::npos) {
            return runValidation(words);
        }
    }
    return runOneCommand(*interface, words);
}

std::unique_ptr<ShellInterface> CShell::makeInterface() const {
    KelshConfig config;
    if (!installPath.empty()) {
        ConfigErrorCollector findings;
        config = KelshConfig::read(installPath + KelshConfig::kFileName, &findings);
        for (const ConfigError* finding : findings.getErrorList()) {
            std::cerr << KelshConfig::kFileName << ": " << finding->toString() << std::endl;
        }
        if (findings.getSize(CONFIG_ERROR) > 0) {
            return nullptr;
        }
    }
    const ShellParts parts{*context, *engine, *sequence, *log};
    if (config.interface == KelshConfig::Interface::kModern) {
        return std::make_unique<ModernInterface>(parts, config);
    }
    return std::make_unique<ClassicInterface>(parts);
}

bool CShell::start(std::list<std::string>& words) {
    if (init(words, *context)) {
        return true;
    }
    std::cout << "Something wrong in init()....! The program is terminated." << std::endl;
    return false;
}

bool CShell::init(std::list<std::string>&, CShellExecutionContext& ctx) {
    if (!installPath.empty()) {
        log->configure(installPath + kLogProperties);
        ctx.setNodeCfgFileName(installPath + ctx.getNodeCfgFileName());
        ctx.setCmdCfgFileName(installPath + ctx.getCmdCfgFileName());
        ctx.setSslCfgFileName(installPath + ctx.getSslCfgFileName());
    }
    ctx.setHostName(hostNameOfMaster());

    ConfigErrorCollector errors;
    buildContext(ctx, &errors);
    warnings.take(errors, *log);
    logLooseFiles(ctx, *log);
    StartUpWarnings::logSilentFaults(ctx.getCmdCfgFileName(), *log);
    if (errors.getSize(CONFIG_ERROR) > 0) {
        std::cout << errors.toString() << std::flush;
        return false;
    }
    warnOfExpiry();
    return true;
}

void CShell::buildContext(CShellExecutionContext& ctx, ConfigErrorCollector* errors) {
    try {
        RegisteredSets::addTo(ctx);
    } catch (const CException& failure) {
        errors->addError(0, failure.getErrMsg());
    }
    CShellConfigReader::readConfig(ctx, errors);
}

void CShell::validate(ConfigErrorCollector* errors, const char* file) {
    CShellExecutionContext scratch;
    validateInto(scratch, errors, file);
}

void CShell::validateInto(CShellExecutionContext& scratch, ConfigErrorCollector* errors,
                          const char* file) {
    // The agents are asked for their addresses, which takes the certificates. Whether these are in
    // order is not what is validated.
    const std::string sslFile = installPath + scratch.getSslCfgFileName();
    if (CUtil::isFileExisted(sslFile)) {
        ConfigErrorCollector ignored;
        CShellConfigReader::readSslConfig(sslFile.c_str(), &ignored);
    }
    CShellConfigReader::readNodeConfig(file, scratch, errors);
}

int CShell::runValidation(const std::list<std::string>& words) {
    std::string file;
    for (auto word = words.begin(); word != words.end(); ++word) {
        if (word->find(kValidateOption) != std::string::npos) {
            file = std::next(word) != words.end() ? *std::next(word) : "";
            break;
        }
    }
    if (file.empty()) {
        std::cout << "It needs to provide configuration file for validation." << std::endl;
        return kExitConfiguration;
    }
    CShellExecutionContext scratch;
    ConfigErrorCollector errors;
    validateInto(scratch, &errors, file.c_str());
    if (errors.getSize(CONFIG_ERROR) > 0) {
        std::cout << "Error! Configuration file " << file << " is not OK.\n"
                  << errors.toString() << "Total error(s): " << errors.getSize(CONFIG_ERROR)
                  << std::endl;
        return kExitConfiguration;
    }
    std::cout << "Configuration file " << file << " is OK.\n"
              << "There are " << scratch.getNodeMap().size() << " node definitions.\n"
              << "There are " << scratch.getNodeGroupList().size() << " group definitions."
              << std::endl;
    return 0;
}

int CShell::runOneCommand(ShellInterface& interface, std::list<std::string>& words) {
    return start(words) ? interface.runCommand(words) : kExitConfiguration;
}

int CShell::runInteractive(ShellInterface& interface, std::list<std::string>& words) {
    if (!start(words)) {
        return kExitConfiguration;
    }
    warnings.show();
    std::cout << context->getNodeMap().size() << " node(s) are loaded ....\n"
              << "Log property file: " << installPath << kLogProperties << "\n";
    context->printDeclaration();
    return interface.runLoop();
}

int CShell::processProgramOption(std::list<std::string>& args, CShellExecutionContext& ctx,
                                 ConfigErrorCollector*) {
    for (const std::string& file : RequestParser::takeNodeFiles(args)) {
        ctx.setNodeCfgFileName(file);
    }
    return 0;
}

CCommandExecutionContext* CShell::processCommandOption(std::string line,
                                                       CShellExecutionContext& ctx,
                                                       ConfigErrorCollector* errors) {
    return RequestParser(ctx).parse(std::move(line), errors).release();
}

CCommandExecutionContext* CShell::processCommandOption(std::list<std::string>& words,
                                                       CShellExecutionContext& ctx,
                                                       ConfigErrorCollector* errors) {
    return RequestParser(ctx).parse(words, errors).release();
}

void CShell::validateCommand(CCommandExecutionContext* cmd) {
    cmd->setValidCommand(RequestParser(*context).namesUsableCommand(cmd->getCommandRequest()));
}

int CShell::execute(CCommandExecutionContext* cmd, ConfigErrorCollector* errors) {
    ClassicResults results(*log);
    return engine->execute(*cmd, results, errors);
}

unsigned int CShell::readCmdSeqFromFile() {
    return sequence->readFromFile();
}

void CShell::writeCmdSeqToFile(unsigned int n) {
    sequence->writeToFile(n);
}

unsigned int CShell::getNextCmdSeq() {
    return sequence->next();
}

CShellExecutionContext& CShell::getExecutionContext() {
    return *context;
}

unsigned int CShell::runningWorkers() {
    return CThreadWrapperOfCommand::running();
}

unsigned int CShell::abandonedWorkers() {
    return CommandEngine::abandonedWorkers() + abandonedAgentQueries();
}

void CShell::init_locks() {
    openssllocks::install();
}

void CShell::kill_locks() {
    openssllocks::remove();
}

void CShell::lock_callback(int mode, int type, const char* file, int line) {
    openssllocks::callback(mode, type, file, line);
}

unsigned long CShell::thread_id() {
    return openssllocks::threadId();
}
