#pragma once

#include <list>
#include <string>

class CShellCommandSet;
class CShellExecutionContext;

// Answers the line editor's question for words that could complete what has been typed: commands of
// the working level, sets after "cd ", and the basic commands everywhere. Main thread only.
class CShellExecutionContextAutoCompleteAdapter {
public:
    // The context is not owned and must outlive the adapter.
    explicit CShellExecutionContextAutoCompleteAdapter(CShellExecutionContext* shellContext);
    CShellExecutionContextAutoCompleteAdapter(const CShellExecutionContextAutoCompleteAdapter&) =
        delete;
    CShellExecutionContextAutoCompleteAdapter& operator=(
        const CShellExecutionContextAutoCompleteAdapter&) = delete;
    virtual ~CShellExecutionContextAutoCompleteAdapter();

    // The candidates in the order above, not sorted, duplicates included. Commands may equal the
    // typed text; a set must be longer than the text after "cd ", and is offered by its bare name.
    std::list<std::string> getPossibleCommandList(std::string typed);

private:
    CShellExecutionContext* context;
};
