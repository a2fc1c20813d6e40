#pragma once

#include <functional>
#include <list>
#include <string>

// The files below /var/tmp into which firmware tools write and from which their answers are read
// back. Their names are fixed and known to everybody on the node, so anybody could put a link there
// that leads root elsewhere, or an answer of his own.
//
// Before a job everything is removed under these names that is not a regular file of root's own.
// That takes away what was planted before; a race against a running job is closed only by the
// kernel, see missingProtection().
namespace plantedfiles {

constexpr char kDirectory[] = "/var/tmp";

// Makes sure that each of the fixed names, and each name that the job's line sends its output to,
// is absent or a regular file that belongs to root or the caller, has one name and can be written
// by nobody else. Nothing is followed. What is removed is told to say, fit for a log.
//   line      of a packaged tool; empty for other jobs, whose own files are nobody's business
// Throws CException when a name that the line holds cannot be freed: it must not run then.
void remove(const std::string& line, const std::function<void(const std::string&)>& say);

// A protection of the kernel, and the command that switches it on.
struct Protection {
    std::string name;
    std::string remedy;
};
std::list<Protection> protectionsThatAreOff();

// A sentence for each protection of the kernel that is off and would keep users from such tricks,
// with the command that switches it on.
std::list<std::string> missingProtection();

}  // namespace plantedfiles
