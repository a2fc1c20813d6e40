#include "Console.h"

#include <iostream>
#include <mutex>

namespace console {

void printLine(const std::string& text) {
    static std::mutex lock;
    const std::string line = text + "\n";
    const std::lock_guard<std::mutex> guard(lock);
    std::cout.write(line.data(), static_cast<std::streamsize>(line.size()));
    std::cout.flush();
}

}  // namespace console
