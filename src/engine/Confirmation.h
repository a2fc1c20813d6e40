#pragma once

#include <cstddef>
#include <string>

// The questions before a command that wants to be confirmed: asked on standard output, answered by
// one key of standard input. A key that is no answer has the question asked again; the end of input
// answers with No, or Cancel where there is that answer. Belongs to the thread that owns the
// terminal.
class Confirmation {
public:
    enum class Answer { kYes, kNo, kCancel };

    //   commandRequest  the command, for the message that it is cancelled
    //   message         the question; a question mark at its end is left out
    Confirmation(std::string commandRequest, std::string message);

    // Once for all nodes; false, which is then said, when the command is not to run.
    bool askOnce(std::size_t nodes) const;

    // For one node. notStarted is the number of nodes for which a Cancel would hold; a No and a
    // Cancel are said.
    Answer askForNode(const std::string& name, std::size_t notStarted) const;

private:
    void sayCanceledFor(const std::string& what) const;

    std::string request;
    std::string question;
};
