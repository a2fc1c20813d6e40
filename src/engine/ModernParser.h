#pragma once

#include <list>
#include <memory>
#include <optional>
#include <string>

#include "CCommandExecutionContext.h"
#include "CommandFinder.h"

class CShellExecutionContext;
class ConfigErrorCollector;

// From typed words to a request, in the modern interface: sets are words, options of the shell and
// of the command are checked before anything runs, and each fault is said in a way that helps.
// Belongs to the thread that uses the context, which is not owned.
class ModernParser {
public:
    explicit ModernParser(CShellExecutionContext& shellContext)
        : context(shellContext), finder(shellContext) {}

    struct Request {
        CCommandExecutionContext command;
        std::optional<bool> fold;  // --fold, --no-fold
    };
    // Nothing when something is wrong, which then is in errors.
    std::optional<Request> parse(std::list<std::string> words, ConfigErrorCollector* errors) const;

    // The request of "run": the words in front of "--", without that one. The line behind it is not
    // part of it.
    std::optional<Request> parseRun(std::list<std::string> words,
                                    ConfigErrorCollector* errors) const;

    // The words without the options of the shell and their values.
    static std::list<std::string> withoutOptions(const std::list<std::string>& words);

    // Where the first "--" that is a word of its own begins, outside of quotes; npos without one.
    static std::string::size_type endOfOptions(const std::string& line);

    // The words of a line. Quotes stay in them, for the command's own options to be told apart by.
    static std::list<std::string> split(const std::string& line);

    // "1500", "1500ms", "5s", "2m" or "1h" as milliseconds; nothing for any other text.
    static std::optional<unsigned int> milliseconds(const std::string& text);

private:
    bool takeTargets(std::list<std::string>& words, Request& request,
                     ConfigErrorCollector* errors) const;
    void take(const std::string& option, const std::string& value, Request& request,
              ConfigErrorCollector* errors) const;
    void addNodes(const std::string& names, Request& request, ConfigErrorCollector* errors) const;
    void addGroups(const std::string& names, Request& request, ConfigErrorCollector* errors) const;
    void reportUnknown(const CommandFinder::Found& found, const std::list<std::string>& words,
                       ConfigErrorCollector* errors) const;

    CShellExecutionContext& context;
    CommandFinder finder;
};
