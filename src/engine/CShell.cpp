#include "CShell.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <iostream>
#include <sys/resource.h>
#include <unistd.h>
#include <utility>

#include <openssl/crypto.h>

#include "CException.h"
#include "CSSLConfig.h"
#include "CShellCommandSet_BIOSFW.h"
#include "CShellCommandSet_Basic.h"
#include "CShellCommandSet_FlashBIOS.h"
#include "CShellCommandSet_ipmifw.h"
#include "CShellConfigReader.h"
#include "CShellExecutionContext.h"
#include "CSystemEnvironment.h"
#include "CThreadWrapperOfCommand.h"
#include "CUtil.h"
#include "CertificateExpiry.h"
#include "CommandSequence.h"
#include "ConfigErrorCollector.h"
#include "PipedLine.h"
#include "ShellLogging.h"
#include "Terminal.h"

// How the shell runs. One thread, the caller's of run(), does everything but the commands
// themselves: it reads lines, asks, starts one worker for each target and waits for them
// (CShellExecute.cpp). A worker shares nothing with it but the place for its outcome; when it is
// late it is left alone, since what it does on the node may be a flash that nobody may cut short.
// Ctrl+C reaches the command run on this machine, if there is one, and otherwise has no effect but
// a message: all waits here go on after it.

namespace {

constexpr int kExitConfiguration = 2;
constexpr int kExitOptionErrors = 7;
constexpr char kValidateOption[] = "--validate";
constexpr char kSequenceFile[] = "cmdseq.cfg";
constexpr char kLogProperties[] = "log4cxx.properties";

pthread_mutex_t* openSslMutexes = nullptr;
unsigned int openSslUsers = 0;

std::size_t openSslLockCount() {
    return static_cast<std::size_t>(CRYPTO_num_locks());
}

void writeLine(const char* text, std::size_t length) {
    std::size_t done = 0;
    while (done < length) {
        const ssize_t written = ::write(STDOUT_FILENO, text + done, length - done);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return;
        }
        done += static_cast<std::size_t>(written);
    }
}

void installSignals() {
    struct sigaction action {};
    action.sa_handler = &signalHandler;
    sigemptyset(&action.sa_mask);
    static_cast<void>(::sigaction(SIGINT, &action, nullptr));
    // A node or a pager that goes away must not take the shell along, nor a file that may not grow.
    action.sa_handler = SIG_IGN;
    static_cast<void>(::sigaction(SIGPIPE, &action, nullptr));
    static_cast<void>(::sigaction(SIGXFSZ, &action, nullptr));
}

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

void signalHandler(int sig) {
    const int savedErrno = errno;
    if (sig == SIGINT) {
        Terminal::dropTypedAhead();
        constexpr char kText[] = "Do not use Ctrl+C to terminate this program.\n";
        writeLine(kText, sizeof kText - 1);
    } else {
        // The number is put together by hand: printf is not safe in a handler.
        char text[48] = "Catch a signal ";
        char* end = text + std::strlen(text);
        char digits[12];
        int count = 0;
        unsigned int rest =
            sig < 0 ? 0U - static_cast<unsigned int>(sig) : static_cast<unsigned int>(sig);
        do {
            digits[count++] = static_cast<char>('0' + rest % 10);
            rest /= 10;
        } while (rest != 0);
        if (sig < 0) {
            *end++ = '-';
        }
        while (count > 0) {
            *end++ = digits[--count];
        }
        *end++ = '\n';
        writeLine(text, static_cast<std::size_t>(end - text));
    }
    errno = savedErrno;
}

CShell::CShell()
    : context(std::make_unique<CShellExecutionContext>()),
      installPath(installPathOfShell()),
      sequence(std::make_unique<CommandSequence>(installPath + kSequenceFile)),
      log(std::make_unique<ShellLogging>()) {
    // Made here, on the main thread: its creation is not guarded against two first callers.
    CSSLConfig::getInstance();
}

CShell::~CShell() {
    if (runningWorkers() != 0) {
        keepForWorkers(std::move(context));
    }
}

int CShell::run(int argc, char** argv) {
    installSignals();
    raiseDescriptorLimit();
    std::list<std::string> words;
    for (int i = 1; i < argc; ++i) {
        words.emplace_back(argv[i]);
    }
    words.splice(words.end(), readPipedWords(STDIN_FILENO));

    ConfigErrorCollector errors;
    if (processProgramOption(words, *context, &errors) != 0) {
        return 0;
    }
    if (errors.getSize(CONFIG_ERROR) > 0) {
        std::cout << errors.toString() << std::flush;
        return kExitConfiguration;
    }
    if (words.empty()) {
        return runInteractive(words);
    }
    for (const std::string& word : words) {
        if (word.find(kValidateOption) != std::string::npos) {
            return runValidation(words);
        }
    }
    return runOneCommand(words);
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
    std::string hostName;
    CUtil::exec_cmd("hostname", &hostName);
    CUtil::removeTailNewline(&hostName);
    ctx.setHostName(hostName);

    ConfigErrorCollector errors;
    buildContext(ctx, &errors);
    keepWarnings(errors);
    if (errors.getSize(CONFIG_ERROR) > 0) {
        std::cout << errors.toString() << std::flush;
        return false;
    }
    warnOfExpiry();
    return true;
}

void CShell::buildContext(CShellExecutionContext& ctx, ConfigErrorCollector* errors) {
    const auto add = [&](auto make) {
        try {
            ctx.addCommandSet(make().release());
        } catch (const CException& failure) {
            errors->addError(0, failure.getErrMsg());
        }
    };
    add([&] { return std::make_unique<CShellCommandSet_Basic>(&ctx); });
    add([] { return std::make_unique<CShellCommandSet_FlashBIOS>(); });
    add([] { return std::make_unique<CShellCommandSet_BIOSFW>(); });
    add([] { return std::make_unique<CShellCommandSet_ipmifw>(); });
    CShellConfigReader::readConfig(ctx, errors);
}

void CShell::keepWarnings(const ConfigErrorCollector& errors) {
    for (const ConfigError* error : errors.getErrorList()) {
        if (error->getLevel() == CONFIG_WARNING) {
            log->warn(error->toString());
            startupWarnings.push_back(error->getErrorMessage());
        }
    }
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

int CShell::runOneCommand(std::list<std::string>& words) {
    if (!start(words)) {
        return kExitConfiguration;
    }
    descend(words);
    const std::string line = joinWords(words);

    ConfigErrorCollector errors;
    int status = kExitOptionErrors;
    const std::unique_ptr<CCommandExecutionContext> request(
        processCommandOption(line, *context, &errors));
    if (errors.getSize() == 0) {
        status = execute(request.get(), &errors);
    } else {
        std::cout << errors.toString() << std::flush;
        validateCommand(request.get());
    }
    if (!request->isValidCommand()) {
        std::cout << "Unknown command: " << line << "\n" << errors.toString() << std::flush;
        return kExitConfiguration;
    }
    // The number is taken only now; so the dump file of a command given on the command line is
    // that of number 0.
    const unsigned int number = getNextCmdSeq();
    log->info("(" + std::to_string(number) + ")[" + line + "]");
    return status;
}

void CShell::descend(std::list<std::string>& words) {
    try {
        while (!words.empty()) {
            context->toLowerLevel(words.front());
            words.pop_front();
        }
    } catch (const CException&) {
        // The first word that is no set begins the command.
    }
}

unsigned int CShell::readCmdSeqFromFile() {
    return sequence->readFromFile();
}

void CShell::writeCmdSeqToFile(unsigned int n) {
    sequence->writeToFile(n);
}

unsigned int CShell::getNextCmdSeq() {
    currentSequence = sequence->next();
    return currentSequence;
}

CShellExecutionContext& CShell::getExecutionContext() {
    return *context;
}

unsigned int CShell::runningWorkers() {
    return CThreadWrapperOfCommand::running();
}

void CShell::init_locks() {
    if (openSslUsers++ > 0) {
        return;
    }
    openSslMutexes = static_cast<pthread_mutex_t*>(
        CRYPTO_malloc(sizeof(pthread_mutex_t) * openSslLockCount(), __FILE__, __LINE__));
    if (openSslMutexes == nullptr) {
        openSslUsers = 0;
        throw std::bad_alloc();
    }
    for (std::size_t i = 0; i < openSslLockCount(); ++i) {
        static_cast<void>(::pthread_mutex_init(&openSslMutexes[i], nullptr));
    }
    CRYPTO_set_locking_callback(&CShell::lock_callback);
    CRYPTO_set_id_callback(&CShell::thread_id);
}

void CShell::kill_locks() {
    if (openSslUsers == 0 || --openSslUsers > 0) {
        return;
    }
    CRYPTO_set_locking_callback(nullptr);
    for (std::size_t i = 0; i < openSslLockCount(); ++i) {
        static_cast<void>(::pthread_mutex_destroy(&openSslMutexes[i]));
    }
    CRYPTO_free(openSslMutexes, __FILE__, __LINE__);
    openSslMutexes = nullptr;
}

void CShell::lock_callback(int mode, int type, const char*, int) {
    if ((mode & CRYPTO_LOCK) != 0) {
        static_cast<void>(::pthread_mutex_lock(&openSslMutexes[type]));
    } else {
        static_cast<void>(::pthread_mutex_unlock(&openSslMutexes[type]));
    }
}

unsigned long CShell::thread_id() {
    return static_cast<unsigned long>(::pthread_self());
}
