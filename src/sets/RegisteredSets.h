#pragma once

class CShellExecutionContext;

// The built-in sets that every shell has from its start. The other sets of this room are for
// programs that link the library and add them with CShellExecutionContext::addCommandSet();
// docs/compatibility.md.
class RegisteredSets {
public:
    RegisteredSets() = delete;

    // Adds them to the context, which owns them, in the order that the help text has.
    static void addTo(CShellExecutionContext& context);
};
