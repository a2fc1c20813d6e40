#include "TextStream.h"

#include <stdexcept>

TextStream::TextStream(const std::string& text) : file(std::tmpfile(), &std::fclose) {
    if (!file || std::fwrite(text.data(), 1, text.size(), file.get()) != text.size()) {
        throw std::runtime_error("cannot make a temporary stream");
    }
    std::rewind(file.get());
}
