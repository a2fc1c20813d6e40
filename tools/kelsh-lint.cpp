// kelsh-lint: says what is wrong in the shell's configuration before it is used.

#include <cstdlib>
#include <exception>
#include <iostream>
#include <list>
#include <string>
#include <utility>
#include <vector>

#include "CException.h"
#include "CUtil.h"
#include "KelshConfig.h"
#include "LintReport.h"

namespace {

constexpr int kNothingFound = 0;
constexpr int kWarnings = 1;
constexpr int kErrors = 2;

constexpr char kUsageText[] =
    "Usage: kelsh-lint [DIR]\n"
    "       kelsh-lint [--node FILE] [--cmd FILE] [--ssl FILE] [--kelsh FILE]\n"
    "       kelsh-lint --help | -h | --version\n"
    "\n"
    "Checks node.cfg, cmd.cfg, ssl_master.cfg and kelsh.cfg of DIR (default: KELSH_PATH, or\n"
    "/opt/kelsh), or the files named, and the key and certificates they name. No node is\n"
    "contacted.\n"
    "\n"
    "Exit status: 0 nothing found, 1 warnings only, 2 errors or wrong usage.\n";

using Check = void (*)(LintReport&);

class UsageError : public CException {
public:
    using CException::CException;
};

struct Job {
    std::string file;
    Check check;
};

std::string defaultDirectory() {
    const char* const path = std::getenv("KELSH_PATH");
    return path != nullptr && *path != '\0' ? path : "/opt/kelsh";
}

std::list<Job> wholeDirectory(const std::string& directory) {
    std::list<Job> jobs;
    const std::string base = directory.back() == '/' ? directory : directory + "/";
    jobs.push_back({base + "node.cfg", lintNodeFile});
    // The shell needs no command file.
    if (CUtil::isFileExisted(base + "cmd.cfg")) {
        jobs.push_back({base + "cmd.cfg", lintCmdFile});
    }
    jobs.push_back({base + "ssl_master.cfg", lintSslFile});
    if (CUtil::isFileExisted(base + KelshConfig::kFileName)) {
        jobs.push_back({base + KelshConfig::kFileName, lintKelshFile});
    }
    return jobs;
}

std::list<Job> parse(const std::vector<std::string>& words) {
    static const std::pair<const char*, Check> kOptions[] = {{"--node", lintNodeFile},
                                                             {"--cmd", lintCmdFile},
                                                             {"--ssl", lintSslFile},
                                                             {"--kelsh", lintKelshFile}};
    std::list<Job> jobs;
    std::string directory;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::string& word = words[i];
        const std::pair<const char*, Check>* option = nullptr;
        for (const auto& known : kOptions) {
            if (word == known.first) {
                option = &known;
            }
        }
        if (option != nullptr) {
            if (i + 1 == words.size()) {
                throw UsageError(word + " needs a file");
            }
            jobs.push_back({words[++i], option->second});
        } else if (word.empty() || word.front() == '-') {
            throw UsageError("unknown option \"" + word + "\"");
        } else if (!directory.empty()) {
            throw UsageError("more than one directory");
        } else {
            directory = word;
        }
    }
    if (!directory.empty() && !jobs.empty()) {
        throw UsageError("either a directory or files");
    }
    if (jobs.empty()) {
        jobs = wholeDirectory(directory.empty() ? defaultDirectory() : directory);
    }
    return jobs;
}

int run(const std::vector<std::string>& words) {
    if (words.size() == 1 && (words[0] == "--help" || words[0] == "-h")) {
        std::cout << kUsageText;
        return kNothingFound;
    }
    if (words.size() == 1 && words[0] == "--version") {
        std::cout << "kelsh-lint " << KELSH_VERSION << '\n';
        return kNothingFound;
    }
    int status = kNothingFound;
    for (const Job& job : parse(words)) {
        LintReport report;
        if (report.open(job.file)) {
            // The shell's reader of kelsh.cfg refuses such a file itself.
            if (job.check != lintKelshFile) {
                report.warnOfLooseFiles(0, job.file);
            }
            job.check(report);
        }
        report.print(std::cout);
        if (report.has(LintReport::Level::kError)) {
            status = kErrors;
        } else if (report.has(LintReport::Level::kWarning) && status == kNothingFound) {
            status = kWarnings;
        }
    }
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    int status = kErrors;
    try {
        status = run({argv + 1, argv + argc});
    } catch (const UsageError& fault) {
        std::cerr << "kelsh-lint: " << fault.getErrMsg() << "\n" << kUsageText;
    } catch (const std::exception& fault) {
        std::cerr << "kelsh-lint: " << fault.what() << '\n';
    }
    std::cout.flush();
    if (!std::cout) {
        std::cerr << "kelsh-lint: cannot write to standard output\n";
        return kErrors;
    }
    return status;
}
