#include "CShellConfigReader.h"

#include <memory>
#include <sys/stat.h>
#include <utility>

#include "CNode.h"
#include "CSSLConfig.h"
#include "CShellCommandSet.h"
#include "CShellExecutionContext.h"
#include "CmdConfigBuilder.h"
#include "CmdConfigFile.h"
#include "CmdNotation.h"
#include "ConfigErrorCollector.h"
#include "ConfigLineReader.h"
#include "NodeConfigFile.h"
#include "NodeConfigWriter.h"
#include "Posix.h"
#include "Text.h"

namespace {

// Null when the file cannot be read. A directory can be opened but not read; it counts as a file
// that cannot be opened.
Posix::File openForReading(const char* fileName) {
    Posix::File file = Posix::openFile(fileName, "re");
    struct stat status {};
    if (file && ::fstat(::fileno(file.get()), &status) == 0 && S_ISDIR(status.st_mode)) {
        file.reset();
    }
    return file;
}

std::string unreadable(const std::string& fileName, const char* purpose) {
    return "Can not open file \"" + fileName + "\"" + purpose +
           "! Please make sure that it exists and can be read.";
}

constexpr char kAnyPurpose[] = "";
constexpr char kSslPurpose[] = " for SSL configuration";

// False for an unknown key.
bool setSslField(const std::string& key, const std::string& value) {
    CSSLConfig* config = CSSLConfig::getInstance();
    if (key == "PRIVATE_KEY_FILE") {
        config->setPrivateKeyFile(value);
    } else if (key == "PUBLIC_KEY_FILE") {
        config->setPublicKeyFile(value);
    } else if (key == "CERTIFICATE_FILE") {
        config->setCertificateFile(value);
    } else {
        return false;
    }
    return true;
}

}  // namespace

void CShellConfigReader::readConfig(CShellExecutionContext& context, ConfigErrorCollector* errors) {
    ConfigErrorCollector sslErrors;
    readSslConfig(context.getSslCfgFileName().c_str(), &sslErrors);
    readNodeConfig(context.getNodeCfgFileName().c_str(), context, errors);
    readCmdConfig(context.getCmdCfgFileName().c_str(), context, errors);
    for (const ConfigError* error : sslErrors.getErrorList()) {
        errors->addError(error->getLine(), error->getLevel(), error->getErrorMessage());
    }
}

void CShellConfigReader::readNodeConfig(const char* fileName, CShellExecutionContext& context,
                                        ConfigErrorCollector* errors) {
    const Posix::File file = openForReading(fileName);
    if (!file) {
        errors->addError(0, unreadable(fileName, kAnyPurpose));
        return;
    }
    readNodeConfig(file.get(), context, errors);
    if (std::ferror(file.get()) != 0) {
        errors->addError(0, unreadable(fileName, kAnyPurpose));
    }
}

void CShellConfigReader::readNodeConfig(FILE* stream, CShellExecutionContext& context,
                                        ConfigErrorCollector* errors) {
    NodeConfigFile(context, errors).read(stream);
}

void CShellConfigReader::readCmdConfig(const char* fileName, CShellExecutionContext& context,
                                       ConfigErrorCollector* errors) {
    const Posix::File file = openForReading(fileName);
    if (!file) {
        return;
    }
    readCmdConfig(file.get(), context, errors);
    // A missing file is no fault. A file that cannot be read to its end is one.
    if (std::ferror(file.get()) != 0) {
        errors->addError(0, unreadable(fileName, kAnyPurpose));
    }
}

void CShellConfigReader::readCmdConfig(FILE* stream, CShellExecutionContext& context,
                                       ConfigErrorCollector* errors) {
    CmdConfigBuilder builder(context, errors);
    for (const std::unique_ptr<CmdSetBlock>& block : CmdConfigFile::read(stream)) {
        builder.build(*block);
    }
}

void CShellConfigReader::readSslConfig(const char* fileName, ConfigErrorCollector* errors) {
    const Posix::File file = openForReading(fileName);
    if (!file) {
        errors->addError(0, unreadable(fileName, kSslPurpose));
        return;
    }
    readSslConfig(file.get(), errors);
    if (std::ferror(file.get()) != 0) {
        errors->addError(0, unreadable(fileName, kSslPurpose));
    }
}

void CShellConfigReader::readSslConfig(FILE* stream, ConfigErrorCollector* errors) {
    ConfigLineReader reader(stream);
    std::string line;
    std::string key;
    std::string value;
    while (reader.next(line)) {
        if (ConfigLineReader::isSkipped(line)) {
            continue;
        }
        if (!ConfigLineReader::splitSetting(line, key, value) || key.empty()) {
            errors->addError(0, "Unknown setting for SSL configuration: " + line);
            continue;
        }
        Text::toUpper(key);
        if (!setSslField(key, value)) {
            errors->addError(0, "Unknown setting for SSL configuration: " + key);
        }
    }
}

CShellCommandSet* CShellConfigReader::checkParentCommandSet(int line, std::string* name,
                                                            CShellExecutionContext& context,
                                                            ConfigErrorCollector* errors) {
    return cmdnotation::resolveParent(line, *name, context, errors);
}

std::list<std::string> CShellConfigReader::resolveOptionToken(std::string token) {
    return cmdnotation::splitOption(token);
}

void CShellConfigReader::addNodeIntoConfig(CShellExecutionContext& context, CNode* node) {
    NodeConfigWriter(context.getNodeCfgFileName()).add(*node);
}

void CShellConfigReader::correctNodeConfig(CShellExecutionContext& context, CNode* node) {
    NodeConfigWriter(context.getNodeCfgFileName()).correct(*node);
}

std::list<std::string> resolveOptionToken(std::string token) {
    return CShellConfigReader::resolveOptionToken(std::move(token));
}
