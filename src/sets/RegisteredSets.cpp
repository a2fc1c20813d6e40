#include "RegisteredSets.h"

#include <memory>

#include "CShellCommandSet_BIOSFW.h"
#include "CShellCommandSet_Basic.h"
#include "CShellCommandSet_FlashBIOS.h"
#include "CShellCommandSet_ipmifw.h"
#include "CShellExecutionContext.h"

void RegisteredSets::addTo(CShellExecutionContext& context) {
    context.addCommandSet(std::make_unique<CShellCommandSet_Basic>(&context).release());
    context.addCommandSet(std::make_unique<CShellCommandSet_FlashBIOS>().release());
    context.addCommandSet(std::make_unique<CShellCommandSet_BIOSFW>().release());
    context.addCommandSet(std::make_unique<CShellCommandSet_ipmifw>().release());
}
