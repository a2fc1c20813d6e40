#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>

#include "CShellExecutionContext.h"
#include "ConfigErrorCollector.h"
#include "Require.h"

// Once per process: the readers and the contexts they fill may speak to the user; here nobody
// reads.
inline void silenceStandardOutput() {
    static const bool done = [] {
        std::cout.setstate(std::ios::badbit);
        return true;
    }();
    require(done);
}

// The input as a stream to read. A text without a byte has no stream in memory.
class FuzzStream {
public:
    FuzzStream(const std::uint8_t* data, std::size_t size)
        : text(reinterpret_cast<const char*>(data), size),
          file(text.empty() ? nullptr : ::fmemopen(text.data(), text.size(), "r"), &std::fclose) {
        require(text.empty() || file != nullptr);
    }

    FILE* get() const { return file.get(); }

    // As many pieces as a reader can count at most.
    int mostLines() const {
        const auto newlines = std::count(text.begin(), text.end(), '\n');
        return static_cast<int>(newlines) + static_cast<int>(text.size() / 511) + 1;
    }

private:
    std::string text;
    std::unique_ptr<FILE, int (*)(FILE*)> file;
};

inline void checkErrors(const ConfigErrorCollector& errors, int firstLine, int lastLine) {
    int counted = 0;
    for (const ConfigError* error : errors.getErrorList()) {
        require(error->getLine() >= firstLine && error->getLine() <= lastLine);
        require(!error->getErrorMessage().empty());
        ++counted;
    }
    require(counted == errors.getSize());
}
