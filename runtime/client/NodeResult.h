#pragma once

#include <cstddef>
#include <string>

#include "CException.h"
#include "CResult.h"
#include "Protocol.h"

// What the end of some work on a node makes of the caller's result. All of it is safe from any
// thread, as long as each result and each collector is used by one at a time.
namespace noderesult {

// Adds a line of its own to a text.
void appendLine(std::string& text, const std::string& line);

//   status  EXEC_SUCCESS, EXEC_FAILURE or EXEC_TIMED_OUT
void fill(CResult& result, int status, int exitCode, std::string summary);
// By what was thrown on the way to the node: a failure with its text, and with the end that its
// type stands for.
void fail(CResult& result, const CException& failure);
// By the agent's word. What it has to add comes after the summary.
void fill(CResult& result, const protocol::Result& verdict, std::string summary);

// Whether the work came to an end of its own. One that was ended before its time may leave more
// than its result behind.
bool isOrderly(const protocol::Result& verdict);

// The output of a job, kept up to a limit and counted beyond it.
class OutputCollector {
public:
    explicit OutputCollector(std::size_t mostBytes) : most(mostBytes) {}
    void add(const std::string& bytes);
    // All that was kept, and how much was not; to be called once.
    std::string finish();

private:
    void makeRoom(std::size_t needed);

    const std::size_t most;
    std::string text;
    unsigned long long dropped = 0;
};

}  // namespace noderesult
