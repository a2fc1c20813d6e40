#include "Console.h"

#include <iostream>
#include <mutex>
#include <unistd.h>

#include "OutputFilter.h"

namespace console {

void printLine(const std::string& text) {
    static std::mutex lock;
    // Some of these texts come from a node.
    const std::string line = (::isatty(STDOUT_FILENO) == 1 ? escapeForTerminal(text) : text) + "\n";
    const std::lock_guard<std::mutex> guard(lock);
    std::cout.write(line.data(), static_cast<std::streamsize>(line.size()));
    std::cout.flush();
}

}  // namespace console
