#include "ShellLogging.h"

#include <atomic>
#include <exception>
#include <iostream>
#include <memory>
#include <mutex>
#include <sys/stat.h>
#include <type_traits>

#include <log4cxx/file.h>
#include <log4cxx/fileappender.h>
#include <log4cxx/helpers/bytebuffer.h>
#include <log4cxx/helpers/exception.h>
#include <log4cxx/helpers/fileoutputstream.h>
#include <log4cxx/helpers/pool.h>
#include <log4cxx/helpers/writer.h>
#include <log4cxx/level.h>
#include <log4cxx/logger.h>
#include <log4cxx/logmanager.h>
#include <log4cxx/propertyconfigurator.h>
#include <log4cxx/spi/loggerrepository.h>

namespace {

constexpr char kShellLogger[] = "kelsh";
constexpr char kResultLogger[] = "cmdresult";
constexpr char kResultAppender[] = "CMD_RESULT_FILE";
constexpr char kUtf8[] = "UTF-8";

// Texts go to log4cxx as they are. Converting them by the locale's character set, which is what its
// macros do, would turn every byte that is not ASCII into a question mark.
static_assert(std::is_same<log4cxx::LogString, std::string>::value,
              "log4cxx must be built with UTF-8 strings");

// Command lines and results may hold secrets: files that log4cxx creates, rotated ones included,
// are for their owner only.
class PrivateFiles {
public:
    PrivateFiles() : previous(::umask(S_IRWXG | S_IRWXO)) {}
    PrivateFiles(const PrivateFiles&) = delete;
    PrivateFiles& operator=(const PrivateFiles&) = delete;
    ~PrivateFiles() { ::umask(previous); }

private:
    mode_t previous;
};

// Hands each event to the file as a whole. log4cxx's own writer encodes and writes 1 KiB at a time,
// which for long results is thousands of calls; to UTF-8 there is nothing to be encoded.
class WholeEventWriter : public log4cxx::helpers::Writer {
public:
    explicit WholeEventWriter(const std::string& fileToAppendTo) : file(fileToAppendTo, true) {}
    void close(log4cxx::helpers::Pool& pool) override { file.close(pool); }
    void flush(log4cxx::helpers::Pool& pool) override { file.flush(pool); }
    void write(const log4cxx::LogString& text, log4cxx::helpers::Pool& pool) override {
        // The buffer is only read.
        log4cxx::helpers::ByteBuffer bytes(const_cast<char*>(text.data()), text.size());
        file.write(bytes, pool);
    }

private:
    log4cxx::helpers::FileOutputStream file;
};

void silenceUntilConfigured() {
    static std::once_flag once;
    std::call_once(once, [] {
        log4cxx::LogManager::getLoggerRepository()->setConfigured(true);
        log4cxx::Logger::getRootLogger()->setLevel(log4cxx::Level::getOff());
    });
}

// Of one logger: whether the user knows already that it cannot be written.
struct Log {
    const char* name;
    std::atomic<bool> reported{false};
};

Log shellLog{kShellLogger};
Log resultLog{kResultLogger};

// A log that cannot be written, on a full disk for example, must not cost a result or a command.
void write(Log& log, const log4cxx::LevelPtr& level, const std::string& text) {
    const log4cxx::LoggerPtr logger = log4cxx::Logger::getLogger(log.name);
    if (!logger->isEnabledFor(level)) {
        return;
    }
    try {
        const PrivateFiles guard;
        logger->forcedLogLS(level, text, LOG4CXX_LOCATION);
        log.reported = false;
    } catch (const std::exception& fault) {
        if (!log.reported.exchange(true)) {
            std::cerr << "kelsh: the log \"" << log.name << "\" is incomplete: " << fault.what()
                      << std::endl;
        }
    }
}

}  // namespace

ShellLogging::ShellLogging() {
    silenceUntilConfigured();
    log4cxx::Logger::getLogger(kShellLogger);
    log4cxx::Logger::getLogger(kResultLogger);
}

void ShellLogging::configure(const std::string& propertiesFile) {
    const PrivateFiles guard;
    log4cxx::PropertyConfigurator::configure(log4cxx::File(propertiesFile));
}

void ShellLogging::pointResultsAt(const std::string& dumpFile) {
    const log4cxx::AppenderPtr appender =
        log4cxx::Logger::getLogger(kResultLogger)->getAppender(kResultAppender);
    const log4cxx::FileAppenderPtr file = log4cxx::cast<log4cxx::FileAppender>(appender);
    if (!file) {
        return;
    }
    if (file->getEncoding().empty()) {
        file->setEncoding(kUtf8);
    }
    const PrivateFiles guard;
    log4cxx::helpers::Pool pool;
    file->setFile(dumpFile);
    file->activateOptions(pool);
    if (file->getEncoding() == kUtf8) {
        try {
            file->setWriter(std::make_shared<WholeEventWriter>(dumpFile));
        } catch (const log4cxx::helpers::IOException&) {
            // log4cxx could not open it either, and has said so.
            return;
        }
    }
}

void ShellLogging::info(const std::string& text) {
    write(shellLog, log4cxx::Level::getInfo(), text);
}

void ShellLogging::warn(const std::string& text) {
    write(shellLog, log4cxx::Level::getWarn(), text);
}

void ShellLogging::result(const std::string& block) {
    write(resultLog, log4cxx::Level::getInfo(), block);
}
