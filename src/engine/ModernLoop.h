#pragma once

#include <optional>
#include <string>

#include "InteractiveLoop.h"
#include "ModernCommands.h"

// The interactive loop of the modern interface. An empty line does nothing; "exit" and the end of
// input leave with status 0.
class ModernLoop : public InteractiveLoop {
public:
    ModernLoop(const ShellParts& shellParts, const KelshConfig& settings)
        : InteractiveLoop(shellParts.context, shellParts.engine, shellParts.sequence,
                          shellParts.log),
          commands(shellParts, settings) {}

    // The line that "!!", "!text" or "!N" stands for, with what follows the first blank behind it;
    // nothing when the history has none. Other lines stay as they are.
    static std::optional<std::string> recalled(const std::string& line, const CCmdHistory& history);

protected:
    std::optional<int> processLine(std::string& text, CCmdHistory& history) override;
    int statusAtEndOfInput() const override { return 0; }

private:
    ModernCommands commands;
};
