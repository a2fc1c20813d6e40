#pragma once

#include <cstdint>
#include <string>
#include <sys/resource.h>

#include "AuditLog.h"
#include "EventLog.h"
#include "SecretMask.h"
#include "ToolRunner.h"

// What all jobs of an agent share. The log must outlive the jobs of this process.
struct JobSettings {
    std::string nodePath;  // ends in "/"
    std::string toolsKeyFile;
    std::string auditFile;  // empty: no audit
    // The limits that jobs get, as the agent has found them: of open files, of memory.
    rlimit fileLimit{};
    rlimit dataLimit{RLIM_INFINITY, RLIM_INFINITY};
    const EventLog* log = nullptr;

    std::string toolsPath() const { return nodePath + "tools/"; }
    std::string runPath() const { return nodePath + "run/"; }
};

struct JobRequest {
    std::string commandLine;
    secretmask::Shown shown;  // the command line for logs, not escaped yet
    std::string workingDirectory = "/";
    std::uint32_t timeOutMs = 0;  // 0: no limit
    bool uninterruptible = false;
    // What it leaves on the node is read back by what follows: it runs in the RunSection.
    bool isReadBack = false;
    ToolRequest tools;  // empty for a plain command
    std::string owner;  // who asked, escaped, for log and refusal
    AuditEntry audit;   // to be ended by the supervisor
};
