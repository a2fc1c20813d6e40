#include "CmdNotation.h"

#include <iterator>

#include "CShellCommandSet.h"
#include "CShellExecutionContext.h"
#include "ConfigErrorCollector.h"
#include "Text.h"

namespace {

// What stands behind the dashes; nothing when they are missing.
// A name without its dashes counts as none, so "[f|force|01]" names no option;
// docs/compatibility.md.
std::string withoutDashes(const std::string& part, const std::string& dashes) {
    return Text::startsWith(part, dashes) ? part.substr(dashes.size()) : std::string();
}

}  // namespace

CShellCommandSet* cmdnotation::resolveParent(int line, std::string& name,
                                             CShellExecutionContext& context,
                                             ConfigErrorCollector* errors) {
    CShellCommandSet* parent = nullptr;
    for (std::string::size_type slash = name.find('/'); slash != std::string::npos;
         slash = name.find('/')) {
        const std::string head = name.substr(0, slash);
        name.erase(0, slash + 1);
        const std::list<CShellCommandSet*>& sets =
            parent == nullptr ? context.getRootCommandSetList() : parent->getChildCommands();
        parent = nullptr;
        for (CShellCommandSet* set : sets) {
            if (set->equal(head)) {
                parent = set;
                break;
            }
        }
        if (parent == nullptr) {
            errors->addError(line, "Command set \"" + head + "\" does not exist!");
            return nullptr;
        }
    }
    return parent;
}

std::list<std::string> cmdnotation::splitOption(const std::string& token) {
    const std::string::size_type open = token.find('[');
    const std::string::size_type close = token.find(']');
    if (open == std::string::npos || close == std::string::npos || close < open) {
        return {};
    }
    std::list<std::string> parts;
    const std::string names = token.substr(open + 1, close - open - 1) + "|";
    std::string::size_type begin = 0;
    for (std::string::size_type end = names.find('|'); end != std::string::npos;
         begin = end + 1, end = names.find('|', begin)) {
        parts.push_back(names.substr(begin, end - begin));
        Text::trim(parts.back());
    }
    if (parts.size() != 3) {
        return {};
    }
    std::string& shortName = parts.front();
    shortName = withoutDashes(shortName, "-");
    std::string& longName = *std::next(parts.begin());
    longName = withoutDashes(longName, "--");
    parts.push_back(token.substr(close + 1));
    Text::trim(parts.back());
    return parts;
}
