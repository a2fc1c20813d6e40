#pragma once

#include <string>
#include <vector>

// The command lines entered since the shell started, oldest first. It has no limit and drops
// nothing. Main thread only.
class CCmdHistory {
public:
    CCmdHistory() = default;
    virtual ~CCmdHistory();

    void add(std::string cmd);
    unsigned int size() const;
    // The n-th entry, counted from 1 at the oldest; "" when there is none.
    std::string getCmd(unsigned int n) const;
    // Writes the numbered entries to standard output.
    void listIt() const;

private:
    std::vector<std::string> entries;
};
