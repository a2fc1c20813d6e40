#pragma once

#include <cstdio>
#include <memory>
#include <string>

// A stream to read a text from, which may hold any bytes.
class TextStream {
public:
    explicit TextStream(const std::string& text);

    FILE* get() const { return file.get(); }

private:
    std::unique_ptr<FILE, int (*)(FILE*)> file;
};
