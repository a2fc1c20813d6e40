#include "ConfigFiles.h"

#include <stdexcept>

void writeFile(const std::string& name, const std::string& text) {
    std::ofstream file(name, std::ios::binary | std::ios::trunc);
    file << text;
    if (!file.flush()) {
        throw std::runtime_error("cannot write " + name);
    }
}

std::string readFile(const std::string& name) {
    std::ifstream file(name, std::ios::binary);
    if (!file) {
        throw std::runtime_error("cannot read " + name);
    }
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}
