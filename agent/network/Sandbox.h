#pragma once

#include <list>
#include <memory>
#include <string>
#include <sys/types.h>
#include <vector>

#include "UniqueFd.h"

// Takes from a process all that passing bytes between two sockets does not need.
namespace sandbox {

// Without the user "kelnode" the first of these that no user and no group has: not 65534, which
// other services have too, whose processes could then end those of a session. Distributions and
// systemd leave them alone.
constexpr uid_t kFirstReserved = 65440;
constexpr uid_t kLastReserved = 65449;

// What can be had here; found out once by probe().
struct Settings {
    // The new root directory. Held open: whatever is mounted over its path later, or removed, the
    // sessions to come still have it.
    std::shared_ptr<const UniqueFd> emptyDirectory;
    uid_t user = kFirstReserved;
    gid_t group = kFirstReserved;
    bool changesUser = false;  // and the root directory
    bool filtersCalls = false;
    // All that this build can have; builds with sanitizers have no filter.
    bool isComplete() const;
};

// Looks up the user "kelnode", or takes an id that nobody has, and tries in a process of its own
// what the kernel and the rights of this one allow. missing: what cannot be had, a sentence each.
Settings probe(const std::string& emptyDirectory, std::list<std::string>& missing);

// The same; as root several times before it gives something up, for about a second: it may have
// been for want of a process or of memory.
Settings probePatiently(const std::string& emptyDirectory, std::list<std::string>& missing);

// For a process that makes others of that kind, in two steps, each of which returns an empty text
// or what failed: then the process must end.
//
// First the maker itself gives up user, root directory, memory and files. It keeps the descriptors
// named, and may still begin processes.
std::string leaveRoot(const Settings& settings, const std::vector<int>& kept);
// Then each process it has forked. It keeps two descriptors, which become 0 and 1, and may read,
// write, wait and end; no file can be opened, no socket made, no process begun or signalled.
std::string confine(const Settings& settings, int first, int second);

// For a session itself, which is not confined: how much memory it may write to. The hard limit
// stays, so that a job gets back what the agent has found.
void boundMemoryOfSession();

}  // namespace sandbox
