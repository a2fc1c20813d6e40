#pragma once

#include <list>
#include <string>

class CShellCommandSet;
class CShellExecutionContext;
class ConfigErrorCollector;

// The notation of cmd.cfg for the path of a set and for an option.
namespace cmdnotation {

// Resolves the path "a/b/c" of a set: returns the set a/b and leaves "c" in name. Null for a name
// without "/" and when an ancestor does not exist, which is then recorded for that line.
CShellCommandSet* resolveParent(int line, std::string& name, CShellExecutionContext& context,
                                ConfigErrorCollector* errors);

// Splits "[-s|--long|CV]description" into short name, long name (both without dashes, empty where
// the dashes are missing), attributes and description; an empty list when the shape is another.
std::list<std::string> splitOption(const std::string& token);

}  // namespace cmdnotation
