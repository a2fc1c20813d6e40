#include "CResult.h"

#include <utility>

CResult::CResult() = default;

CResult::~CResult() = default;

EXEC_STATUS_ENUM CResult::getRunStatus() const {
    return runStatus;
}

void CResult::setRunStatus(EXEC_STATUS_ENUM status) {
    runStatus = status;
}

void CResult::setRunStatus(int status) {
    runStatus = static_cast<EXEC_STATUS_ENUM>(status);
}

int CResult::getExitCode() const {
    return exitCode;
}

void CResult::setExitCode(int code) {
    exitCode = code;
}

long CResult::getRunTime() const {
    return runTime;
}

void CResult::setRunTime(long milliseconds) {
    runTime = milliseconds;
}

std::string CResult::getRunSummary() const {
    return runSummary;
}

void CResult::setRunSummary(std::string summary) {
    runSummary = std::move(summary);
}

std::string CResult::getExitOutput() const {
    return exitOutput;
}

void CResult::setExitOutput(std::string output) {
    exitOutput = std::move(output);
}

std::string CResult::getStatusEnumString() const {
    switch (runStatus) {
        case EXEC_SUCCESS:
            return "SUCCESS";
        case EXEC_REJECTED:
            return "REJECTED";
        case EXEC_FAILURE:
            return "FAILURE";
        case EXEC_TIMED_OUT:
            return "TIMED_OUT";
    }
    return "UNKNOWN";
}
