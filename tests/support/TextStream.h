#pragma once

#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>

// A stream to read a text from, which may hold any bytes.
class TextStream {
public:
    explicit TextStream(const std::string& text) : file(std::tmpfile(), &std::fclose) {
        if (!file || std::fwrite(text.data(), 1, text.size(), file.get()) != text.size()) {
            throw std::runtime_error("cannot make a temporary stream");
        }
        std::rewind(file.get());
    }

    FILE* get() const { return file.get(); }

private:
    std::unique_ptr<FILE, int (*)(FILE*)> file;
};
