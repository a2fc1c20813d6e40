// The shell's configuration readers against an independent reading of the same generated files.

#include <array>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Figure.h"
#include "TestPaths.h"

namespace {

// What the program prints; its complaints go where ours go.
std::string outputOf(const std::string& line) {
    const std::unique_ptr<FILE, int (*)(FILE*)> stream(::popen(line.c_str(), "re"), &::pclose);
    if (!stream) {
        throw std::runtime_error("cannot start: " + line);
    }
    std::string output;
    std::array<char, 4096> part{};
    for (std::size_t got = 1; got > 0;) {
        got = std::fread(part.data(), 1, part.size(), stream.get());
        output.append(part.data(), got);
    }
    return output;
}

// The word behind the text; empty where the text is missing.
std::string wordBehind(const std::string& output, const std::string& text) {
    const std::string::size_type at = output.find(text);
    if (at == std::string::npos) {
        return "";
    }
    const std::string::size_type begin = at + text.size();
    return output.substr(begin, output.find_first_of(" \n", begin) - begin);
}

}  // namespace

std::vector<Figure> compareConfigurations(const Scale& scale) {
    Figure figure;
    figure.attack = "configuration files: three readers against an independent model";
    figure.tries = scale.pick(100000, 3000);
    const std::string output =
        outputOf("python3 " KELSH_SOURCE_DIR
                 "/tests/integration/config/config_differential.py --program " KELSH_BINARY_DIR
                 "/bin/config_dump --keep " KELSH_BINARY_DIR "/differing.cfg --count " +
                 std::to_string(figure.tries));
    const std::string all = std::to_string(figure.tries) + " files are read alike\n";
    figure.isReached = output.find(all) != std::string::npos;
    figure.survived = figure.isReached ? figure.tries : 0;
    figure.remark = "start value " + wordBehind(output, "--seed ");
    if (!figure.isReached) {
        std::fprintf(stderr, "configurations: %s\n", output.c_str());
        figure.remark += "; a difference, see build/*/differing.cfg";
    }
    return {figure};
}
