#pragma once

#include <list>
#include <memory>
#include <string>

class CCommandExecutionContext;
class CShellExecutionContext;
class ConfigErrorCollector;

// Removes the first element equal to the word; does nothing when there is none.
void removeOneArg(std::list<std::string>* args, std::string word);

// From typed words to the request of one command: options, targets, time-out. Looks nodes, groups
// and commands up in the context, which is not owned and must outlive the parser. Belongs to the
// thread that uses the context.
class RequestParser {
public:
    explicit RequestParser(CShellExecutionContext& shellContext) : context(shellContext) {}

    // The request of a line, or of words, of which the target and time-out options are taken out.
    // Never null. Unknown nodes and groups and bad time-outs go into the collector.
    std::unique_ptr<CCommandExecutionContext> parse(std::string line,
                                                    ConfigErrorCollector* errors) const;
    std::unique_ptr<CCommandExecutionContext> parse(std::list<std::string>& words,
                                                    ConfigErrorCollector* errors) const;

    // Whether the text of a request is to count as a known command although it has faults: when its
    // first word begins a command usable at the working level or is the name of a set of that
    // level, or when the dispatcher would take it, a path in front included.
    bool namesUsableCommand(const std::string& request) const;

    // The words with one blank between them, trimmed.
    static std::string joinWords(const std::list<std::string>& words);

    // The values of the program options that name the node file, in the order typed; they leave
    // the words.
    static std::list<std::string> takeNodeFiles(std::list<std::string>& words);

private:
    CShellExecutionContext& context;
};
