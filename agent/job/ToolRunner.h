#pragma once

#include <functional>
#include <list>
#include <string>
#include <vector>

#include "CException.h"
#include "RunDirectory.h"

// What one run of a packaged tool needs.
struct ToolRequest {
    std::list<std::string> packagedFiles;  // "<tool>.enc"; the first is the program
    std::list<std::string> companionFiles;

    bool isEmpty() const { return packagedFiles.empty(); }
};

// The plain copies of packaged tools for the time of one run. Used by the process that supervises
// the run: it takes a lock per package, unpacks into the tools directory, and removes the copies at
// the end; a record makes sure that somebody does should it be killed.
class ToolRunner {
public:
    // The tool is in use and the wait for it was given up.
    class Busy : public CException {
    public:
        using CException::CException;
    };

    // Both paths end in "/"; the record outlives this object.
    ToolRunner(std::string toolsPath, std::string keyFile, const RunDirectory& directory,
               RunDirectory::Record& record);
    ToolRunner(const ToolRunner&) = delete;
    ToolRunner& operator=(const ToolRunner&) = delete;
    // Removes what prepare made.
    ~ToolRunner();

    // Checks names and companions, locks, verifies and unpacks every package. While a package is
    // in use, mayWait is called again and again; it sleeps a moment, or returns false to give up.
    // Throws CException, Busy when it gave up; then nothing stays behind and nothing may be run.
    void prepare(const ToolRequest& request, const std::function<bool()>& mayWait);
    // Removes the plain copies, then gives the locks up. Safe to call more than once.
    void cleanUp();

    // For a job that must keep the locks should its supervisor die.
    std::vector<int> lockDescriptors() const;

    // The program's path in the shell line.
    static std::string programPath(const std::string& toolsPath, const ToolRequest& request);

private:
    void checkNames(const ToolRequest& request) const;
    void lockAll(const ToolRequest& request, const std::function<bool()>& mayWait);
    void unpack(const std::string& packageName);

    const std::string toolsPath;
    const std::string keyFile;
    const RunDirectory& directory;
    RunDirectory::Record& record;
    std::vector<RunLock> locks;
    std::vector<std::string> plainFiles;
};
