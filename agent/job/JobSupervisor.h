#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

#include "FirmwareLock.h"
#include "JobReport.h"
#include "JobRequest.h"
#include "RunDirectory.h"
#include "ToolRunner.h"
#include "UniqueFd.h"

// The process between a session and its job; see Job.h for what it is for. Everything here runs in
// that process, which ends with run().
class JobSupervisor {
public:
    // controlSocket: to the session. jobOutput: where the job writes; fileName: its name where
    // it is a file, to be renamed once the job may run. The references are to the copies that the
    // fork has made.
    JobSupervisor(const JobSettings& jobSettings, const JobRequest& jobRequest,
                  UniqueFd controlSocket, UniqueFd jobOutput, std::string fileName);
    JobSupervisor(const JobSupervisor&) = delete;
    JobSupervisor& operator=(const JobSupervisor&) = delete;

    // Never returns.
    [[noreturn]] void run();

    static constexpr char kFirmwareLog[] = "firmware.log";

private:
    using Clock = std::chrono::steady_clock;

    void becomeSupervisor();
    void keepOnlyOwnDescriptors();
    // False when the job could not be started; the session has been told.
    bool start();
    void prepare();
    void takeFirmwareLock();
    bool mayWaitForTool();
    void spawn();
    // In the child; every call here is one that is allowed after fork.
    [[noreturn]] void becomeJob(char* const* environment, const std::vector<int>& inherited,
                                int statusPipe) const;
    std::vector<std::string> environmentOfJob() const;
    std::vector<int> inheritedDescriptors() const;
    void watch();
    // True when the shell has ended.
    bool reapChildren();
    void waitForEvents();
    void readSignals();
    void endTree(const char* why);
    void tidyUp();
    void endAudit(const std::string& outcome) const;
    void logOutcome(const protocol::Result& outcome) const;

    protocol::Result result(protocol::Result::Ending ending, int value) const;
    void report(JobReport::Kind kind, const protocol::Result& outcome) const;
    void reportNotStarted(std::uint16_t code, const std::string& text) const;
    void send(const JobReport& told) const;
    int pollTimeOut() const;

    const JobSettings& settings;
    const JobRequest& request;
    UniqueFd control;
    UniqueFd output;
    const std::string outputFile;
    UniqueFd signals;
    RunDirectory directory;
    RunDirectory::Record record;
    FirmwareLock firmwareLock;
    std::unique_ptr<ToolRunner> tools;

    Clock::time_point startedAt;
    std::optional<Clock::time_point> deadline;
    pid_t shell = 0;
    int shellStatus = 0;
    bool sessionGone = false;
    bool toldToEnd = false;
};
