#pragma once

#include <string>

#include "CShellCommandSet.h"

// "r3biosfw": the BIOS of the newer board generation, R3. Reads its identifier and build date,
// flashes and saves the image with romflash, and backs up and restores its configuration with
// SCELNX_64.
//
// Flashing and restoring are never cut short on the node; the other runs end at their time-out.
// Holds no state of its own: any number of workers may execute at once.
class CShellCommandSet_BIOSFW : public CShellCommandSet {
public:
    CShellCommandSet_BIOSFW();

    // Never throws CException; the outcome is the result's run status and summary. A run that
    // outlives its time-out on the node is status 5. timeOutMs is per agent call.
    void execute(std::string commandLine, CNode* node, CResult& result,
                 unsigned int timeOutMs) override;
};
