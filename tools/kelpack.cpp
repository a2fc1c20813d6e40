// kelpack: makes and checks packaged tools. One line per file on standard output, faults on
// standard error; a fault in one file does not keep the others from being done.

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include "CException.h"
#include "Posix.h"
#include "ToolPackage.h"
#include "UniqueFd.h"

namespace {

constexpr int kDone = 0;
constexpr int kFailed = 1;
constexpr int kUsage = 2;

constexpr char kUsageText[] =
    "Usage: kelpack keygen FILE\n"
    "       kelpack pack --key FILE [--output DIR] TOOL...\n"
    "       kelpack list FILE...\n"
    "       kelpack verify --key FILE FILE...\n"
    "       kelpack --help | --version\n"
    "\n"
    "keygen   make a new tool key (mode 0600); an existing file is never replaced\n"
    "pack     write TOOL.enc beside each TOOL, or into DIR\n"
    "list     show the name, the size and the chunks that each package claims\n"
    "verify   check every byte of each package against the key and its file name\n"
    "\n"
    "Exit status: 0 all done, 1 at least one file failed, 2 wrong usage.\n";

class UsageError : public CException {
public:
    using CException::CException;
};

struct Arguments {
    std::string key;
    std::string output;
    std::vector<std::string> files;
};

Arguments parse(const std::vector<std::string>& words, bool takesKey, bool takesOutput) {
    Arguments arguments;
    bool optionsEnded = false;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::string& word = words[i];
        std::string* value = nullptr;
        if (!optionsEnded && word == "--") {
            optionsEnded = true;
            continue;
        }
        if (!optionsEnded && word == "--key" && takesKey) {
            value = &arguments.key;
        } else if (!optionsEnded && word == "--output" && takesOutput) {
            value = &arguments.output;
        } else if (!optionsEnded && word.size() > 1 && word[0] == '-') {
            throw UsageError("unknown option " + word);
        }
        if (value == nullptr) {
            arguments.files.push_back(word);
        } else if (i + 1 < words.size()) {
            *value = words[++i];
        } else {
            throw UsageError(word + " needs a value");
        }
    }
    if (takesKey && arguments.key.empty()) {
        throw UsageError("--key is missing");
    }
    if (arguments.files.empty()) {
        throw UsageError("no file is named");
    }
    return arguments;
}

std::string baseName(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

UniqueFd openPackage(const std::string& path) {
    UniqueFd fd = Posix::open(path, O_RDONLY | O_NONBLOCK);
    if (!fd) {
        const int error = errno;
        throw CException(path + ": cannot be opened: " + std::strerror(error));
    }
    return fd;
}

// Runs the work for each file; reports a failure and continues.
int forEach(const std::vector<std::string>& files,
            const std::function<void(const std::string&)>& work) {
    int status = kDone;
    for (const std::string& file : files) {
        try {
            work(file);
        } catch (const CException& fault) {
            std::cerr << "kelpack: " << fault.getErrMsg() << std::endl;
            status = kFailed;
        }
    }
    return status;
}

int keygen(const std::vector<std::string>& words) {
    const Arguments arguments = parse(words, false, false);
    if (arguments.files.size() != 1) {
        throw UsageError("keygen makes one key file");
    }
    return forEach(arguments.files, toolpackage::ToolKey::createFile);
}

int packTools(const std::vector<std::string>& words) {
    const Arguments arguments = parse(words, true, true);
    const toolpackage::ToolKey key = toolpackage::ToolKey::load(arguments.key);
    return forEach(arguments.files, [&](const std::string& tool) {
        const std::string package =
            (arguments.output.empty() ? tool : arguments.output + "/" + baseName(tool)) +
            toolpackage::kSuffix;
        toolpackage::pack(tool, key, package);
        std::cout << package << '\n';
    });
}

int listPackages(const std::vector<std::string>& words) {
    const Arguments arguments = parse(words, false, false);
    return forEach(arguments.files, [](const std::string& path) {
        const UniqueFd package = openPackage(path);
        toolpackage::PackageHeader header;
        try {
            header = toolpackage::readHeader(package.get());
        } catch (const CException& fault) {
            throw CException(path + ": " + fault.getErrMsg());
        }
        std::cout << path << ": " << header.toolName << ", " << header.plainSize << " bytes, "
                  << header.chunks() << (header.chunks() == 1 ? " chunk" : " chunks") << '\n';
    });
}

int verifyPackages(const std::vector<std::string>& words) {
    const Arguments arguments = parse(words, true, false);
    const toolpackage::ToolKey key = toolpackage::ToolKey::load(arguments.key);
    return forEach(arguments.files, [&](const std::string& path) {
        const UniqueFd package = openPackage(path);
        try {
            toolpackage::verify(package.get(), toolpackage::toolNameOf(baseName(path)), key);
        } catch (const CException& fault) {
            throw CException(path + ": " + fault.getErrMsg());
        }
        std::cout << path << ": OK\n";
    });
}

int run(const std::vector<std::string>& words) {
    static const std::map<std::string, int (*)(const std::vector<std::string>&)> kCommands{
        {"keygen", keygen},
        {"pack", packTools},
        {"list", listPackages},
        {"verify", verifyPackages}};
    if (words.empty()) {
        throw UsageError("no command is given");
    }
    if (words[0] == "--help" || words[0] == "-h") {
        std::cout << kUsageText;
        return kDone;
    }
    if (words[0] == "--version") {
        std::cout << "kelpack " << KELSH_VERSION << ", package format " << toolpackage::kVersion
                  << '\n';
        return kDone;
    }
    const auto command = kCommands.find(words[0]);
    if (command == kCommands.end()) {
        throw UsageError("unknown command " + words[0]);
    }
    return command->second({words.begin() + 1, words.end()});
}

}  // namespace

int main(int argc, char** argv) {
    int status = kFailed;
    try {
        status = run({argv + 1, argv + argc});
    } catch (const UsageError& fault) {
        std::cerr << "kelpack: " << fault.getErrMsg() << "\n" << kUsageText;
        return kUsage;
    } catch (const CException& fault) {
        std::cerr << "kelpack: " << fault.getErrMsg() << '\n';
        return kFailed;
    }
    std::cout.flush();
    if (!std::cout) {
        std::cerr << "kelpack: cannot write to standard output\n";
        return kFailed;
    }
    return status;
}
