#include "CCmdHistory.h"

#include <iostream>
#include <utility>

CCmdHistory::~CCmdHistory() = default;

void CCmdHistory::add(std::string cmd) {
    entries.push_back(std::move(cmd));
}

unsigned int CCmdHistory::size() const {
    return static_cast<unsigned int>(entries.size());
}

std::string CCmdHistory::getCmd(unsigned int n) const {
    return n == 0 || n > entries.size() ? std::string() : entries[n - 1];
}

void CCmdHistory::listIt() const {
    if (entries.empty()) {
        std::cout << "The history of command execution is empty.\n";
        return;
    }
    unsigned int number = 0;
    for (const std::string& entry : entries) {
        std::cout << ++number << "  " << entry << '\n';
    }
}
