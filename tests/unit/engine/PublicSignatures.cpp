// Parameter order and kind, and the kind of what comes back, of every operation that other code is
// compiled against. The compiler checks it all, so there is nothing to run; whether an operation is
// const is its own affair.

#include <cstdint>
#include <cstdio>
#include <list>
#include <map>
#include <string>
#include <type_traits>

#include "CAlreadyExistException.h"
#include "CCannotOpenFileException.h"
#include "CCommandDispatcher.h"
#include "CCommandOption.h"
#include "CDoesNotExistException.h"
#include "CException.h"
#include "CNode.h"
#include "CNodeGroup.h"
#include "CResult.h"
#include "CSSLConfig.h"
#include "CShellCommand.h"
#include "CShellCommandSet.h"
#include "CShellCommandSet_Basic.h"
#include "CShellConfigReader.h"
#include "CShellExecutionContext.h"
#include "CShellExecutionContextAutoCompleteAdapter.h"
#include "CSystemEnvironment.h"
#include "CUtil.h"
#include "CVersionConfig.h"
#include "CmdStrWithOption.h"
#include "ConfigError.h"
#include "ConfigErrorCollector.h"
#include "KelshEnum.h"
#include "SSLClient.h"
#include "StopWatch.h"

namespace {

template <class F>
struct PlainSignature;
template <class R, class... A>
struct PlainSignature<R (*)(A...)> {
    using type = R(A...);
};
template <class R, class C, class... A>
struct PlainSignature<R (C::*)(A...)> {
    using type = R(A...);
};
template <class R, class C, class... A>
struct PlainSignature<R (C::*)(A...) const> {
    using type = R(A...);
};

template <auto operation, class Expected>
constexpr bool is = std::is_same_v<typename PlainSignature<decltype(operation)>::type, Expected>;

using std::string;
using Names = std::list<string>;

static_assert(is<&CNode::getName, string()>);
static_assert(is<&CNode::getMac, string()>);
static_assert(is<&CNode::getIp, string()>);
static_assert(is<&CNode::getPort, std::uint32_t()>);
static_assert(is<&CNode::setMac, void(string)>);
static_assert(is<&CNode::setIp, void(string)>);
static_assert(is<&CNode::setPort, void(unsigned int)>);
static_assert(std::is_constructible_v<CNode, string, string, string, std::uint32_t>);
static_assert(std::is_constructible_v<CNode, string, string, string>);
static_assert(std::is_constructible_v<CNode, string, string>);
static_assert(std::is_copy_assignable_v<CNode> && std::has_virtual_destructor_v<CNode>);

static_assert(is<&CNodeGroup::getName, string()>);
static_assert(is<&CNodeGroup::addNode, void(CNode*)>);
static_assert(is<&CNodeGroup::addGroup, void(CNodeGroup*)>);
static_assert(is<&CNodeGroup::removeNode, void(CNode*)>);
static_assert(is<&CNodeGroup::removeGroup, void(CNodeGroup*)>);
static_assert(is<&CNodeGroup::removeAllNodes, void()>);
static_assert(is<&CNodeGroup::removeAllGroups, void()>);
static_assert(is<&CNodeGroup::checkRecursiveReference, void(CNodeGroup*)>);
static_assert(is<&CNodeGroup::startCheckingRecursiveReference, void()>);
static_assert(std::is_same_v<decltype(std::declval<CNodeGroup&>().getNodes()), std::list<CNode*>&>);
static_assert(
    std::is_same_v<decltype(std::declval<CNodeGroup&>().getNodeGroups()), std::list<CNodeGroup*>&>);
static_assert(std::has_virtual_destructor_v<CNodeGroup>);

static_assert(is<&CCommandOption::getShortOptName, string()>);
static_assert(is<&CCommandOption::getLongOptName, string()>);
static_assert(is<&CCommandOption::getIsCompulsory, bool()>);
static_assert(is<&CCommandOption::getHasOptValue, bool()>);
static_assert(is<&CCommandOption::getDescription, string()>);
static_assert(is<&CCommandOption::setDescription, void(string)>);
static_assert(is<&CCommandOption::equal, bool(CCommandOption)>);
static_assert(is<&CCommandOption::toString, string()>);
static_assert(is<&CCommandOption::getOptionValue, string(string)>);
static_assert(is<&CCommandOption::processOption, bool(string*)>);
static_assert(
    std::is_constructible_v<CCommandOption, string, string, COMMAND_OPTION_COMPULSORY_TYPE,
                            COMMAND_OPTION_VALUE_TYPE, string>);
static_assert(std::is_constructible_v<CCommandOption, string, string,
                                      COMMAND_OPTION_COMPULSORY_TYPE, COMMAND_OPTION_VALUE_TYPE>);
static_assert(std::is_copy_constructible_v<CCommandOption>);
static_assert(std::has_virtual_destructor_v<CCommandOption>);

static_assert(std::is_constructible_v<CShellCommand, string, string, string, string, COMMAND_TYPE,
                                      EXECUTE_DESTINATION>);
static_assert(std::is_constructible_v<CShellCommand, string, string, string, COMMAND_TYPE,
                                      EXECUTE_DESTINATION>);
static_assert(std::has_virtual_destructor_v<CShellCommand>);
static_assert(is<&CShellCommand::getName, string()>);
static_assert(is<&CShellCommand::getDescription, string()>);
static_assert(is<&CShellCommand::getCommand, string()>);
static_assert(is<&CShellCommand::get32Command, string()>);
static_assert(is<&CShellCommand::get64Command, string()>);
static_assert(is<&CShellCommand::getType, COMMAND_TYPE()>);
static_assert(is<&CShellCommand::getDestination, EXECUTE_DESTINATION()>);
static_assert(is<&CShellCommand::getCommandSet, CShellCommandSet*()>);
static_assert(is<&CShellCommand::setCommandSet, void(CShellCommandSet*)>);
static_assert(is<&CShellCommand::setCommandConfirmType, void(CONFIRM_TYPE_ENUM)>);
static_assert(is<&CShellCommand::setCommandConfirmMessage, void(string)>);
static_assert(is<&CShellCommand::setTimeOut, void(unsigned)>);
static_assert(is<&CShellCommand::getOptions, std::list<CCommandOption*>()>);
static_assert(is<&CShellCommand::getExamples, Names()>);
static_assert(is<&CShellCommand::setExamples, void(Names)>);
static_assert(is<&CShellCommand::needToCheck32Or64BitCommand, bool()>);
static_assert(is<&CShellCommand::getTimeOut, unsigned()>);
static_assert(is<&CShellCommand::getCommandConfirmType, CONFIRM_TYPE_ENUM()>);
static_assert(is<&CShellCommand::getCommandConfirmMessage, string()>);
static_assert(is<&CShellCommand::getCommandOption, CCommandOption*(string)>);
static_assert(is<&CShellCommand::getCommandOptionValue, string(string, string)>);
static_assert(is<&CShellCommand::addOption, void(CCommandOption*)>);
static_assert(is<&CShellCommand::addExample, void(string)>);
static_assert(is<&CShellCommand::removeOption, void(CCommandOption*)>);
static_assert(is<&CShellCommand::removeOptions, void()>);
static_assert(is<&CShellCommand::validateCommand, bool(string, ConfigErrorCollector*)>);
static_assert(is<&KelshEnum::resolveConformType, CONFIRM_TYPE_ENUM(string)>);
static_assert(std::is_default_constructible_v<KelshEnum>);

static_assert(std::is_constructible_v<CShellCommandSet, string, string>);
static_assert(std::has_virtual_destructor_v<CShellCommandSet>);
static_assert(is<&CShellCommandSet::execute, void(string, CNode*, CResult&, unsigned)>);
static_assert(is<&CShellCommandSet::getCommandSetName, string()>);
static_assert(is<&CShellCommandSet::getDescription, string()>);
static_assert(is<&CShellCommandSet::setDescription, void(string)>);
static_assert(is<&CShellCommandSet::getParentCommand, CShellCommandSet*()>);
static_assert(is<&CShellCommandSet::setParentCommand, void(CShellCommandSet*)>);
static_assert(is<&CShellCommandSet::hasParentCommandSet, bool()>);
static_assert(is<&CShellCommandSet::getTimeOut, unsigned()>);
static_assert(is<&CShellCommandSet::setTimeOut, void(unsigned)>);
static_assert(is<&CShellCommandSet::setCommandSetConfirmType, void(CONFIRM_TYPE_ENUM)>);
static_assert(is<&CShellCommandSet::setCommandSetConfirmMessage, void(string)>);
static_assert(is<&CShellCommandSet::getCommandSetConfirmType, CONFIRM_TYPE_ENUM()>);
static_assert(is<&CShellCommandSet::getCommandSetConfirmMessage, string()>);
static_assert(is<&CShellCommandSet::addChildCommand, void(CShellCommandSet*)>);
static_assert(is<&CShellCommandSet::removeChildCommand, void(CShellCommandSet*)>);
static_assert(is<&CShellCommandSet::removeAllChildCommands, void()>);
static_assert(is<&CShellCommandSet::addSupportedCommand, void(CShellCommand*)>);
static_assert(is<&CShellCommandSet::removeSupportedCommand, void(string)>);
static_assert(is<&CShellCommandSet::isSupported, bool(string)>);
static_assert(is<&CShellCommandSet::findPossibleSupportedCommand,
                 CShellCommand*(string, ConfigErrorCollector*)>);
static_assert(is<&CShellCommandSet::matchCommand, bool(string, string)>);
static_assert(is<&CShellCommandSet::getPath, string()>);
static_assert(is<&CShellCommandSet::getUsage, string()>);
static_assert(is<&CShellCommandSet::getCommandConfirmType, CONFIRM_TYPE_ENUM(string)>);
static_assert(is<&CShellCommandSet::getCommandConfirmMessage, string(string)>);
static_assert(is<&CShellCommandSet::getCommandTimeOut, unsigned(string)>);
static_assert(is<&CShellCommandSet::getExecuteDestination, EXECUTE_DESTINATION(string)>);
static_assert(is<&CShellCommandSet::checkHardwarePlatformOnSlaveNode, int(SSLClient*)>);
static_assert(std::is_same_v<decltype(std::declval<CShellCommandSet&>().getChildCommands()),
                             std::list<CShellCommandSet*>&>);
static_assert(std::is_same_v<decltype(std::declval<CShellCommandSet&>().getSupportedCommands()),
                             std::map<string, CShellCommand*>&>);

static_assert(is<&checkForShortAndLongOption, void(string*, string*, string)>);
static_assert(std::is_constructible_v<CmdStrWithOption, string>);
static_assert(std::has_virtual_destructor_v<CmdStrWithOption>);
static_assert(is<&CmdStrWithOption::getCommand, string()>);
static_assert(is<&CmdStrWithOption::getOptionAndValue, string()>);
static_assert(is<&CmdStrWithOption::hasValueOptionFormat, bool(string)>);
static_assert(is<&CmdStrWithOption::checkShortLongOptionFormat, void(string*, string*, string)>);
static_assert(is<&CmdStrWithOption::isExecutableCommand2, bool(string, ConfigErrorCollector*)>);
static_assert(std::is_same_v<decltype(std::declval<CmdStrWithOption&>().getOptionList()), Names&>);

static_assert(std::is_default_constructible_v<CCommandDispatcher>);
static_assert(std::has_virtual_destructor_v<CCommandDispatcher>);
static_assert(is<&CCommandDispatcher::registerCommand, void(CShellCommandSet*)>);
static_assert(is<&CCommandDispatcher::unregisterCommand, int(CShellCommandSet*)>);
static_assert(is<&CCommandDispatcher::getCommandAndOptionPart, string(string)>);
static_assert(is<&CCommandDispatcher::getCommandPart, string(string)>);
static_assert(is<&CCommandDispatcher::findExeCommand,
                 CShellCommand*(string, string&, ConfigErrorCollector*)>);

static_assert(std::is_constructible_v<ConfigError, int, CONFIGERROR_LEVEL, string>);
static_assert(std::is_constructible_v<ConfigError, int, string>);
static_assert(std::has_virtual_destructor_v<ConfigError>);
static_assert(is<&ConfigError::getLine, int()>);
static_assert(is<&ConfigError::getLevel, CONFIGERROR_LEVEL()>);
static_assert(is<&ConfigError::getErrorMessage, string()>);
static_assert(is<&ConfigErrorCollector::getErrorList, std::list<ConfigError*>()>);
static_assert(is<&ConfigErrorCollector::clear, void()>);

static_assert(
    std::is_same_v<PlainSignature<decltype(&CSSLConfig::getInstance)>::type, CSSLConfig*()>);
static_assert(is<&CSSLConfig::setPrivateKeyFile, void(string)>);
static_assert(is<&CSSLConfig::setPublicKeyFile, void(string)>);
static_assert(is<&CSSLConfig::setCertificateFile, void(string)>);
static_assert(is<&CSSLConfig::clone, void(CSSLConfig*)>);
static_assert(std::has_virtual_destructor_v<CSSLConfig>);

static_assert(is<&CShellConfigReader::addNodeIntoConfig, void(CShellExecutionContext&, CNode*)>);
static_assert(is<&CShellConfigReader::correctNodeConfig, void(CShellExecutionContext&, CNode*)>);
static_assert(is<&CShellConfigReader::resolveOptionToken, Names(string)>);
static_assert(is<&CShellConfigReader::checkParentCommandSet,
                 CShellCommandSet*(int, string*, CShellExecutionContext&, ConfigErrorCollector*)>);
template <class Source>
using ContextReader = void (*)(Source, CShellExecutionContext&, ConfigErrorCollector*);
template <class Source>
using SslReader = void (*)(Source, ConfigErrorCollector*);
[[maybe_unused]] constexpr ContextReader<const char*> kNodesByName =
    &CShellConfigReader::readNodeConfig;
[[maybe_unused]] constexpr ContextReader<FILE*> kNodesByStream =
    &CShellConfigReader::readNodeConfig;
[[maybe_unused]] constexpr ContextReader<const char*> kCmdByName =
    &CShellConfigReader::readCmdConfig;
[[maybe_unused]] constexpr ContextReader<FILE*> kCmdByStream = &CShellConfigReader::readCmdConfig;
[[maybe_unused]] constexpr SslReader<const char*> kSslByName = &CShellConfigReader::readSslConfig;
[[maybe_unused]] constexpr SslReader<FILE*> kSslByStream = &CShellConfigReader::readSslConfig;
static_assert(is<&CShellExecutionContext::getRootCommandSetList, std::list<CShellCommandSet*>&()>);
static_assert(is<&CShellExecutionContext::getNodeMap, std::map<string, CNode*>&()>);
static_assert(is<&CShellExecutionContext::getNodeGroupList, std::list<CNodeGroup*>&()>);
static_assert(is<&CShellExecutionContext::getBasicCommandSet, CShellCommandSet*()>);
static_assert(is<&CShellExecutionContext::setHostName, void(string)>);
static_assert(is<&CShellExecutionContext::setNodeCfgFileName, void(string)>);
static_assert(is<&CShellExecutionContext::setCmdCfgFileName, void(string)>);
static_assert(is<&CShellExecutionContext::setSslCfgFileName, void(string)>);
static_assert(is<&CShellExecutionContext::addCommandSet, void(CShellCommandSet*)>);
static_assert(is<&CShellExecutionContext::findExeCommand,
                 CShellCommand*(string, string&, ConfigErrorCollector*)>);
static_assert(is<&CShellExecutionContext::getCWL, Names()>);
static_assert(is<&CShellExecutionContext::cwlToString, string()>);
static_assert(is<&CShellExecutionContext::getPathToWorkingCommandSet, string()>);
static_assert(is<&CShellExecutionContext::getWorkingCommandSet, std::list<CShellCommandSet*>()>);
static_assert(is<&CShellExecutionContext::toLowerLevel, void(string)>);
static_assert(is<&CShellExecutionContext::toUpperLevel, void()>);
static_assert(is<&CShellExecutionContext::toRootLevel, void()>);
static_assert(is<&CShellExecutionContext::listWorkingCommandSet, string()>);
static_assert(is<&CShellExecutionContext::getUsage, string()>);
static_assert(is<&CShellExecutionContext::getCWLUsage, string()>);
static_assert(is<&CShellExecutionContext::getVersionBuildString, string()>);
static_assert(is<&CShellExecutionContext::printDeclaration, void()>);
static_assert(is<&CShellExecutionContext::clear, void()>);

static_assert(
    std::is_constructible_v<CShellExecutionContextAutoCompleteAdapter, CShellExecutionContext*>);
static_assert(
    is<&CShellExecutionContextAutoCompleteAdapter::getPossibleCommandList, Names(string)>);
static_assert(std::has_virtual_destructor_v<CShellExecutionContextAutoCompleteAdapter>);

static_assert(std::is_base_of_v<CShellCommandSet, CShellCommandSet_Basic>);
static_assert(std::is_constructible_v<CShellCommandSet_Basic, CShellExecutionContext*>);
static_assert(is<&CShellCommandSet_Basic::execute, void(string, CNode*, CResult&, unsigned int)>);

static_assert(is<&CSystemEnvironment::reload, void()>);
static_assert(is<&CSystemEnvironment::getKelshPath, string()>);
static_assert(is<&CSystemEnvironment::getKelnodePath, string()>);
static_assert(is<&CSystemEnvironment::isDefaultKelshPathUsed, bool()>);
static_assert(is<&CSystemEnvironment::isDefaultKelnodePathUsed, bool()>);

static_assert(is<&CResult::getExitCode, int()>);
static_assert(is<&CResult::getRunTime, long()>);
static_assert(is<&CResult::getStatusEnumString, string()>);
static_assert(std::is_copy_assignable_v<CResult> && std::is_default_constructible_v<CResult>);
static_assert(is<&StopWatch::start, void()>);
static_assert(is<&StopWatch::stop, void()>);
static_assert(is<&StopWatch::getTime, long()>);
static_assert(std::is_constructible_v<CVersionConfig, const char*>);
static_assert(is<&CVersionConfig::getVersion, string()>);
static_assert(is<&CVersionConfig::getBuild, string()>);

static_assert(std::is_constructible_v<SSLClient, string, int, string>);
static_assert(is<&SSLClient::execute, void(string, unsigned int, CResult*)>);
static_assert(is<&SSLClient::isFileExistedAtSlaveNode, bool(string)>);

static_assert(is<&CUtil::isDataAvailable, bool(int)>);
static_assert(is<&CUtil::mygetch, int()>);
static_assert(is<&CUtil::getCursorPosition, void(unsigned int&, unsigned int&)>);
static_assert(is<&CUtil::sleep, void(unsigned long)>);
static_assert(is<&CUtil::trim, void(string&)>);
static_assert(is<&CUtil::trimTwoSpace, void(string&)>);
static_assert(is<&CUtil::removeTailNewline, void(string*)>);
static_assert(is<&CUtil::removeTailQuestionMark, void(string*)>);
static_assert(is<&CUtil::makeNeatString, void(string*)>);
static_assert(is<&CUtil::toLower, void(string&)>);
static_assert(is<&CUtil::toUpper, void(string&)>);
static_assert(is<&CUtil::isFileExisted, bool(string)>);
static_assert(is<&CUtil::getDateTimeString2, string()>);
static_assert(is<&CUtil::validateIPAddrFormat, bool(string, unsigned char)>);
static_assert(is<&CUtil::validateMACaddr, bool(string, string)>);
static_assert(is<&CUtil::validateHostnameFormat, bool(string)>);
static_assert(is<&CUtil::validateHostnameRangeFormat, bool(string)>);

static_assert(std::is_base_of_v<CException, CAlreadyExistException>);
static_assert(std::is_base_of_v<CException, CDoesNotExistException>);
static_assert(std::is_base_of_v<CException, CCannotOpenFileException>);
static_assert(is<&CException::getErrMsg, string()>);
static_assert(is<&CException::dump, void()>);

static_assert(!std::is_convertible_v<int, COMMAND_TYPE>);

}  // namespace
