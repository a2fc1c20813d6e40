#pragma once

#include <functional>
#include <string>
#include <vector>

#include "AgentConfig.h"
#include "FileTrust.h"

// What an agent's files say about who else could change what it believes and runs: configuration,
// rules, certificates, keys, audit, log, the node path with its tools, and the directories above
// them. Looked at once, when the object is made.
class NodeFiles {
public:
    using Say = std::function<void(const std::string& line)>;

    // Set to "yes" in the environment this excuses loose files as ALLOW_LOOSE_FILES=yes does, and
    // the configuration itself too: a file that others can write cannot excuse itself.
    static constexpr char kExcuse[] = "KELNODE_ALLOW_LOOSE_FILES";

    explicit NodeFiles(const AgentConfig& config);

    // True when the agent may use its files. Says otherwise, line by line, what is loose and which
    // command mends it; where loose files are excused, that it goes on with them.
    bool areTrusted(const Say& say) const;
    // Files that others could change. Each line names the command that mends it.
    std::vector<std::string> looseFiles() const;
    // The same, and the keys, one by one.
    std::vector<FileTrust::Finding> findings() const;
    // Keys that others can only read. Likewise.
    std::vector<std::string> openKeys() const;
    // Whether the agent starts although looseFiles() is not empty.
    bool isExcused() const { return excused; }

private:
    FileTrust configuration;
    FileTrust others;
    std::vector<FileTrust::Finding> keys;
    bool excused;
};
