#include "ShellInterface.h"

std::list<std::string> ShellInterface::argumentsOf(int argc, char** argv) {
    std::list<std::string> words;
    for (int i = 1; i < argc; ++i) {
        words.emplace_back(argv[i]);
    }
    return words;
}
