#pragma once

#include <string>

#include "CShellCommandSet.h"

// "biosfw": the BIOS and CMOS of the older board generation, R2, on x86_64 nodes: romtool for the
// CMOS, chipprobe for the identifier, romlayout for the layout, romwrite.sh and flashrom for the
// chip.
//
// Whatever writes the chip or the CMOS is never cut short on the node; the other runs end at their
// time-out. Holds no state of its own: any number of workers may execute at once.
class CShellCommandSet_FlashBIOS : public CShellCommandSet {
public:
    CShellCommandSet_FlashBIOS();

    // Never throws CException; the outcome is the result's run status and summary. A run that
    // outlives its time-out on the node is status 5. timeOutMs is per agent call.
    //
    // "flash bios fw" looks for "-r" and "-x " anywhere in the line, file names included: a file
    // called my-rom.bin asks for the reboot. "--skipid" holds no "-x ", so the identifier is then
    // still checked.
    void execute(std::string commandLine, CNode* node, CResult& result,
                 unsigned int timeOutMs) override;
};
