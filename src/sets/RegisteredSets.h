#pragma once

class CShellExecutionContext;

// The built-in sets that every shell has from its start. The other sets of this room are registered
// where a site wants them, with CShellExecutionContext::addCommandSet().
class RegisteredSets {
public:
    RegisteredSets() = delete;

    // Registers them with the context, which takes them over, in the order of the help text.
    static void addTo(CShellExecutionContext& context);
};
