#include "ToolRunner.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <set>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "Text.h"
#include "ToolPackage.h"

namespace {

std::string lockName(const std::string& packageName) {
    return "tool-" + toolpackage::toolNameOf(packageName) + ".lock";
}

bool isRegularFile(const std::string& path) {
    struct stat found {};
    return ::stat(path.c_str(), &found) == 0 && S_ISREG(found.st_mode);
}

std::string shown(const std::string& name) {
    return "\"" + Text::printable(name, 256) + "\"";
}

UniqueFd openPackage(const std::string& path, const std::string& name) {
    UniqueFd package(
        ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
    if (!package) {
        throw CException(errno == ENOENT ? "the packaged tool " + name + " is not on this node"
                                         : "cannot open the packaged tool " + path + ": " +
                                               std::strerror(errno));
    }
    struct stat opened {};
    if (::fstat(package.get(), &opened) != 0 || !S_ISREG(opened.st_mode)) {
        throw CException("the packaged tool " + path + " is not a regular file");
    }
    return package;
}

}  // namespace

ToolRunner::ToolRunner(std::string tools, std::string key, const RunDirectory& runDirectory,
                       RunDirectory::Record& runRecord)
    : toolsPath(std::move(tools)),
      keyFile(std::move(key)),
      directory(runDirectory),
      record(runRecord) {}

ToolRunner::~ToolRunner() {
    cleanUp();
}

std::string ToolRunner::programPath(const std::string& toolsPath, const ToolRequest& request) {
    return toolsPath + toolpackage::toolNameOf(request.packagedFiles.front());
}

void ToolRunner::checkNames(const ToolRequest& request) const {
    std::set<std::string> plainNames;
    for (const std::string& name : request.packagedFiles) {
        if (name.find('/') != std::string::npos) {
            throw CException("the packaged tool " + shown(name) + " must be a name, not a path");
        }
        plainNames.insert(toolpackage::toolNameOf(name));
    }
    for (const std::string& name : request.companionFiles) {
        if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos ||
            name.find('\0') != std::string::npos) {
            throw CException("the companion file " + shown(name) + " must be a name, not a path");
        }
        // Otherwise the copy made for this run would replace it, and its end remove it.
        if (plainNames.count(name) != 0) {
            throw CException("the companion file " + shown(name) + " is a packaged tool too");
        }
        if (!isRegularFile(toolsPath + name)) {
            throw CException("the companion file " + toolsPath + Text::printable(name, 256) +
                             " does not exist on this node");
        }
    }
}

void ToolRunner::lockAll(const ToolRequest& request, const std::function<bool()>& mayWait) {
    // In one order everywhere, so that two runs cannot wait for one another.
    const std::set<std::string> names(request.packagedFiles.begin(), request.packagedFiles.end());
    for (const std::string& name : names) {
        RunLock lock = directory.tryLock(lockName(name));
        while (!lock) {
            if (!mayWait()) {
                throw Busy("the packaged tool " + name + " is in use on this node");
            }
            lock = directory.tryLock(lockName(name));
        }
        locks.push_back(std::move(lock));
    }
}

void ToolRunner::unpack(const std::string& packageName) {
    const std::string toolName = toolpackage::toolNameOf(packageName);
    const UniqueFd package = openPackage(toolsPath + packageName, packageName);
    const toolpackage::ToolKey key = toolpackage::ToolKey::load(keyFile);
    // Whoever holds the lock is the only one to write this name, and what a dead run left there
    // is of no use to anybody.
    const std::string temporary = toolsPath + "." + toolName + ".unpacking";
    const std::string plain = toolsPath + toolName;
    record.addFile(temporary);
    ::unlink(temporary.c_str());
    UniqueFd target(
        ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, S_IRWXU));
    if (!target) {
        throw CException("cannot make " + temporary + ": " + std::strerror(errno));
    }
    try {
        if (::fchmod(target.get(), S_IRWXU) != 0) {
            throw CException("cannot set the mode of " + temporary + ": " + std::strerror(errno));
        }
        toolpackage::unpack(package.get(), toolName, key, target.get());
        // Closed before anything is forked: a program open for writing cannot be run.
        target.reset();
        record.addTool(lockName(packageName), plain);
        if (::rename(temporary.c_str(), plain.c_str()) != 0) {
            throw CException("cannot make " + plain + ": " + std::strerror(errno));
        }
        plainFiles.push_back(plain);
    } catch (const CException&) {
        ::unlink(temporary.c_str());
        throw;
    }
}

void ToolRunner::prepare(const ToolRequest& request, const std::function<bool()>& mayWait) {
    checkNames(request);
    lockAll(request, mayWait);
    try {
        const std::set<std::string> names(request.packagedFiles.begin(),
                                          request.packagedFiles.end());
        for (const std::string& name : names) {
            unpack(name);
        }
        // A companion may have been taken away while this run waited for its turn.
        checkNames(request);
    } catch (const CException&) {
        cleanUp();
        throw;
    }
}

void ToolRunner::cleanUp() {
    for (const std::string& name : plainFiles) {
        ::unlink(name.c_str());
    }
    plainFiles.clear();
    for (RunLock& lock : locks) {
        lock.release();
    }
    locks.clear();
}

std::vector<int> ToolRunner::lockDescriptors() const {
    std::vector<int> descriptors;
    for (const RunLock& lock : locks) {
        descriptors.push_back(lock.descriptor());
    }
    return descriptors;
}
