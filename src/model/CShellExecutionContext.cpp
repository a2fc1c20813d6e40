#include "CShellExecutionContext.h"

#include <algorithm>
#include <iostream>
#include <set>
#include <utility>

#include "CCommandDispatcher.h"
#include "CDoesNotExistException.h"
#include "CException.h"
#include "CNode.h"
#include "CNodeGroup.h"
#include "CShellCommand.h"
#include "CShellCommandSet.h"
#include "CVersionConfig.h"
#include "InstallPaths.h"

namespace {

constexpr char kBasicSetName[] = "BASIC";
constexpr char kVersionFile[] = "kelsh_version.cfg";
constexpr char kGap[] = "   ";

// How many living contexts have no version information. Only the first reports it; the scratch
// contexts of a validation would only repeat it.
int contextsWithoutVersion = 0;

CShellCommandSet* findSet(const std::list<CShellCommandSet*>& sets, const std::string& name) {
    const auto found = std::find_if(sets.begin(), sets.end(), [&](CShellCommandSet* set) {
        return set->getCommandSetName() == name;
    });
    return found == sets.end() ? nullptr : *found;
}

void appendCommandNames(std::string& text, CShellCommandSet& set) {
    for (const auto& entry : set.getSupportedCommands()) {
        text += entry.first + kGap;
    }
}

void appendSetName(std::string& text, CShellCommandSet& set) {
    text += "[" + set.getCommandSetName() + "]" + kGap;
}

// Deletes each set or node once, even when it was entered twice.
template <class Owned>
void deleteAll(const std::list<Owned*>& owned) {
    const std::set<Owned*> distinct(owned.begin(), owned.end());
    for (Owned* object : distinct) {
        delete object;
    }
}

}  // namespace

CShellExecutionContext::CShellExecutionContext()
    : dispatcher(std::make_unique<CCommandDispatcher>()) {
    loadVersion();
}

CShellExecutionContext::CShellExecutionContext(Temporary)
    : dispatcher(std::make_unique<CCommandDispatcher>()) {}

CShellExecutionContext::~CShellExecutionContext() {
    clear();
    if (versionMissing) {
        --contextsWithoutVersion;
    }
}

void CShellExecutionContext::loadVersion() {
    std::list<std::string> places = {kVersionFile};
    installpaths::reload();
    const installpaths::Place installed = installpaths::kelsh();
    if (!installed.isDefault) {
        places.push_back(installed.path + kVersionFile);
    }
    for (const std::string& place : places) {
        try {
            versionConfig = std::make_shared<const CVersionConfig>(place.c_str());
            return;
        } catch (const CException&) {
            // The next place may have it. A file that is still missing is reported below.
            continue;
        }
    }
    versionMissing = true;
    if (contextsWithoutVersion++ == 0) {
        std::cout << "Error! Failed in loading kelsh_version.cfg....\n" << std::flush;
    }
}

std::list<CShellCommandSet*>& CShellExecutionContext::getRootCommandSetList() {
    return rootCommandSets;
}

std::map<std::string, CNode*>& CShellExecutionContext::getNodeMap() {
    return nodeMap;
}

std::list<CNodeGroup*>& CShellExecutionContext::getNodeGroupList() {
    return nodeGroups;
}

CShellCommandSet* CShellExecutionContext::getBasicCommandSet() const {
    return basicCommandSet;
}

std::string CShellExecutionContext::getHostName() const {
    return hostName;
}

void CShellExecutionContext::setHostName(std::string newHostName) {
    hostName = std::move(newHostName);
}

std::string CShellExecutionContext::getNodeCfgFileName() const {
    return nodeCfgFileName;
}

void CShellExecutionContext::setNodeCfgFileName(std::string fileName) {
    nodeCfgFileName = std::move(fileName);
}

std::string CShellExecutionContext::getCmdCfgFileName() const {
    return cmdCfgFileName;
}

void CShellExecutionContext::setCmdCfgFileName(std::string fileName) {
    cmdCfgFileName = std::move(fileName);
}

std::string CShellExecutionContext::getSslCfgFileName() const {
    return sslCfgFileName;
}

void CShellExecutionContext::setSslCfgFileName(std::string fileName) {
    sslCfgFileName = std::move(fileName);
}

void CShellExecutionContext::addCommandSet(CShellCommandSet* set) {
    try {
        dispatcher->registerCommand(set);
    } catch (const CException& error) {
        std::cout << error.getErrMsg() << "\n" << std::flush;
    }
    if (!set->hasParentCommandSet()) {
        rootCommandSets.push_back(set);
    }
    if (set->getCommandSetName() == kBasicSetName) {
        basicCommandSet = set;
    }
    allCommandSets.push_back(set);
}

CShellCommand* CShellExecutionContext::findExeCommand(std::string workingPath,
                                                      std::string& typedLine,
                                                      ConfigErrorCollector* errors) {
    return dispatcher->findExeCommand(std::move(workingPath), typedLine, errors);
}

std::list<std::string> CShellExecutionContext::getCWL() const {
    return cwl;
}

std::string CShellExecutionContext::cwlToString() const {
    std::string text;
    for (const std::string& name : cwl) {
        text += "/" + name;
    }
    return text;
}

std::string CShellExecutionContext::getPathToWorkingCommandSet() const {
    std::string text;
    for (const std::string& name : cwl) {
        text += name + "/";
    }
    return text;
}

std::list<CShellCommandSet*> CShellExecutionContext::getWorkingCommandSet() {
    if (cwl.empty()) {
        return rootCommandSets;
    }
    CShellCommandSet* working = nullptr;
    for (const std::string& name : cwl) {
        working = findSet(working == nullptr ? rootCommandSets : working->getChildCommands(), name);
        if (working == nullptr) {
            // The wording of these two stays; docs/compatibility.md.
            std::cout << "Can not find command set: " << name << " This should not be happened!\n"
                      << std::flush;
            return {};
        }
    }
    return {working};
}

void CShellExecutionContext::toLowerLevel(std::string name) {
    const std::list<CShellCommandSet*> working = getWorkingCommandSet();
    CShellCommandSet* lower = nullptr;
    if (cwl.empty()) {
        lower = findSet(working, name);
    } else if (working.size() != 1) {
        std::cout << "ERROR!!!!! There must be only one working command set.\n" << std::flush;
    } else {
        lower = findSet(working.front()->getChildCommands(), name);
    }
    if (lower == nullptr) {
        throw CDoesNotExistException("Can not find command set: " + name);
    }
    cwl.push_back(std::move(name));
}

void CShellExecutionContext::toUpperLevel() {
    if (!cwl.empty()) {
        cwl.pop_back();
    }
}

void CShellExecutionContext::toRootLevel() {
    cwl.clear();
}

std::string CShellExecutionContext::listWorkingCommandSet() {
    const std::list<CShellCommandSet*> working = getWorkingCommandSet();
    std::string text;
    if (cwl.empty()) {
        for (CShellCommandSet* set : working) {
            if (set->getCommandSetName() == kBasicSetName) {
                appendCommandNames(text, *set);
                text += "\n";
            } else {
                appendSetName(text, *set);
            }
        }
        return text;
    }
    if (working.size() != 1) {
        std::cout << "Error! There should be only one working command set.\n" << std::flush;
        return text;
    }
    appendCommandNames(text, *working.front());
    text += "\n";
    for (CShellCommandSet* child : working.front()->getChildCommands()) {
        appendSetName(text, *child);
    }
    return text;
}

std::string CShellExecutionContext::getUsage() {
    std::string text = declaration() +
                       "Usage:\n"
                       "\tOptions for commands executed on slave nodes:\n"
                       "\t\t[-n|--node]\tfor specified slave nodes.\n"
                       "\t\t[-g|--group]\tfor slave nodes in the specified groups.\n"
                       "\t\t[-t|--timeout]\tfor time out of the command execution.\n";
    for (CShellCommandSet* set : rootCommandSets) {
        text += set->getUsage();
    }
    return text;
}

std::string CShellExecutionContext::getCWLUsage() {
    std::string text;
    for (CShellCommandSet* set : getWorkingCommandSet()) {
        text += set->getUsage();
    }
    return text;
}

std::string CShellExecutionContext::getVersionBuildString() const {
    if (!versionConfig) {
        return "Version @VERSION@, Build @BUILD@";
    }
    return "Version " + versionConfig->getVersion() + ", Build " + versionConfig->getBuild();
}

std::string CShellExecutionContext::declaration() const {
    return "kelsh (A CLI interface for managing cluster.)\n" + getVersionBuildString() + "\n";
}

void CShellExecutionContext::printDeclaration() const {
    std::cout << declaration() << std::flush;
}

void CShellExecutionContext::clear() {
    for (CShellCommandSet* set : allCommandSets) {
        dispatcher->unregisterCommand(set);
    }
    basicCommandSet = nullptr;
    allCommandSets.clear();
    deleteAll(rootCommandSets);
    rootCommandSets.clear();
    for (const auto& entry : nodeMap) {
        delete entry.second;
    }
    nodeMap.clear();
    deleteAll(nodeGroups);
    nodeGroups.clear();
}
