#pragma once

#include "CShellCommandSet.h"

// "ipmifw": the firmware of a node's management controller.
class CShellCommandSet_ipmifw : public CShellCommandSet {
public:
    CShellCommandSet_ipmifw();

    // While the process-wide flag is true, "flash ipmi fw" flashes nothing. False at first; safe
    // from any thread.
    static void setTestFlag(bool flag);
    static bool getTestFlag();
};
