#include "CShellCommandSet_ipmifw.h"

#include <atomic>

#include "CommandTable.h"

namespace {

std::atomic<bool> testFlag{false};

const CommandTable& table() {
    static const CommandTable rows = {
        {"get ipmi fw revision",
         "get ipmi fw revision on system",
         BUILTIN_OPT,
         SLAVE,
         {},
         30000,
         "",
         "get ipmi fw revision -n node_0000"},

        {"flash ipmi fw",
         "flash ipmi firmware",
         BUILTIN_OPT,
         SLAVE,
         {valueOption("f", "file", "this is ipmi fw image file that will be flashed")},
         1200000,
         "Do you really want to flash the IPMI firmware?",
         "flash ipmi fw -f fwFile -n node_0000"},
    };
    return rows;
}

}  // namespace

CShellCommandSet_ipmifw::CShellCommandSet_ipmifw()
    : CShellCommandSet("ipmifw", "Commands for IPMI Firmware Flash.") {
    addCommands(*this, table());
}

void CShellCommandSet_ipmifw::setTestFlag(bool flag) {
    testFlag = flag;
}

bool CShellCommandSet_ipmifw::getTestFlag() {
    return testFlag;
}
