#pragma once

#include <chrono>
#include <string>
#include <sys/types.h>
#include <vector>

// What /proc tells about processes; a process that ends meanwhile counts as nothing.
namespace processes {

// A field of /proc/PID/status in KiB, "VmRSS" for example.
long statusKiB(pid_t pid, const std::string& field);
// All that the processes do not share with others, KiB.
long privateKiB(const std::vector<pid_t>& pids);
long openDescriptors(pid_t pid);
// User and system time used so far, milliseconds.
long processorMs(pid_t pid);
// The process and all below it.
std::vector<pid_t> tree(pid_t root);
// Dead and not waited for, below the process.
long zombies(pid_t root);

// A command line and when it was seen.
struct Sighting {
    std::string commandLine;
    std::chrono::steady_clock::time_point at;
};
// The command lines, of this process excepted, that hold the text. On a busy machine one look lasts
// long, so each has a time of its own.
std::vector<Sighting> sightings(const std::string& text);

}  // namespace processes
