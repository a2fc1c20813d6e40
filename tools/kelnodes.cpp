// kelnodes: folds, expands, counts and combines sets of nodes.

#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "CException.h"
#include "CNode.h"
#include "CShellExecutionContext.h"
#include "ConfigErrorCollector.h"
#include "ContextNodeNames.h"
#include "NodeConfigFile.h"
#include "NodeSet.h"
#include "Posix.h"

namespace {

constexpr int kDone = 0;
constexpr int kEmpty = 1;
constexpr int kWrong = 2;

constexpr char kUsageText[] =
    "Usage: kelnodes fold|expand|count [--config FILE] [SET...]\n"
    "       kelnodes --help | -h | --version\n"
    "\n"
    "A set has ranges as in n[01-16] and groups as in @rack1; \",\" unites, \"!\" takes away,\n"
    "\"&\" keeps what is in both, \"^\" what is in one only, from left to right. Several sets are\n"
    "united. Without a set they are read from standard input, divided by white space.\n"
    "\n"
    "fold             print the nodes as one short set\n"
    "expand           print them one a line\n"
    "count            print how many there are\n"
    "--config FILE    the node.cfg with the groups; default that of KELSH_PATH or /opt/kelsh\n"
    "\n"
    "Exit status: 0 done, 1 the set is empty, 2 a set or the use is wrong.\n";

class UsageError : public CException {
public:
    using CException::CException;
};

// Any name is a node here; the groups are those of the node file, read when the first is named. No
// node is contacted.
class SiteGroups : public NodeNames {
public:
    explicit SiteGroups(std::string file) : fileName(std::move(file)) {}

    bool hasNode(const std::string&) const override { return true; }
    // Names that look like sets are found here too, where a group is named beside them.
    std::vector<std::string> allNodes() const override { return known().allNodes(); }
    bool hasGroup(const std::string& name) const override { return known().hasGroup(name); }
    std::vector<std::string> nodesOf(const std::string& group) const override {
        return known().nodesOf(group);
    }

private:
    const ContextNodeNames& known() const {
        if (!names) {
            read();
        }
        return *names;
    }

    void read() const {
        const Posix::File file = Posix::openFile(fileName, "re");
        if (!file) {
            Posix::throwErrno("\"" + fileName + "\" cannot be opened");
        }
        ConfigErrorCollector errors;
        const auto asConfigured = [](const CNode& node) {
            return NodeAgentAnswer{true, node.getMac()};
        };
        NodeConfigFile(context, &errors, asConfigured, 1).read(file.get());
        if (errors.getSize(CONFIG_ERROR) > 0) {
            throw CException("\"" + fileName + "\" is faulty; kelsh-lint says more");
        }
        names = std::make_unique<ContextNodeNames>(context);
    }

    std::string fileName;
    mutable CShellExecutionContext context{CShellExecutionContext::Temporary()};
    mutable std::unique_ptr<ContextNodeNames> names;
};

std::string defaultFile() {
    const char* const path = std::getenv("KELSH_PATH");
    const std::string directory = path != nullptr && *path != '\0' ? path : "/opt/kelsh";
    return directory + (directory.back() == '/' ? "" : "/") + "node.cfg";
}

struct Request {
    std::string command;
    std::string file = defaultFile();
    std::vector<std::string> sets;
};

Request parse(const std::vector<std::string>& words) {
    Request request;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::string& word = words[i];
        if (word == "--config") {
            if (i + 1 == words.size()) {
                throw UsageError("--config needs a file");
            }
            request.file = words[++i];
        } else if (!word.empty() && word.front() == '-') {
            throw UsageError("unknown option \"" + word + "\"");
        } else if (request.command.empty()) {
            request.command = word;
        } else {
            request.sets.push_back(word);
        }
    }
    if (request.command != "fold" && request.command != "expand" && request.command != "count") {
        throw UsageError(request.command.empty() ? "nothing to do"
                                                 : "unknown command \"" + request.command + "\"");
    }
    if (request.sets.empty()) {
        for (std::string set; std::cin >> set;) {
            request.sets.push_back(set);
        }
    }
    return request;
}

void print(const std::string& command, const NodeSet& set) {
    if (command == "count") {
        std::cout << set.size() << '\n';
    } else if (command == "fold") {
        std::cout << set.fold() << '\n';
    } else {
        for (const std::string& name : set.getNames()) {
            std::cout << name << '\n';
        }
    }
}

int run(const std::vector<std::string>& words) {
    if (words.size() == 1 && (words[0] == "--help" || words[0] == "-h")) {
        std::cout << kUsageText;
        return kDone;
    }
    if (words.size() == 1 && words[0] == "--version") {
        std::cout << "kelnodes " << KELSH_VERSION << '\n';
        return kDone;
    }
    const Request request = parse(words);
    const SiteGroups groups(request.file);
    NodeSet all;
    for (const std::string& text : request.sets) {
        // The file is read for groups only: without them none is needed.
        const bool named = text.find('@') != std::string::npos;
        all.unite(NodeSet::parse(text, named ? &groups : nullptr));
    }
    print(request.command, all);
    return all.empty() ? kEmpty : kDone;
}

}  // namespace

int main(int argc, char** argv) {
    int status = kWrong;
    try {
        status = run({argv + 1, argv + argc});
    } catch (const UsageError& fault) {
        std::cerr << "kelnodes: " << fault.getErrMsg() << "\n" << kUsageText;
    } catch (const std::exception& fault) {
        std::cerr << "kelnodes: " << fault.what() << '\n';
    }
    std::cout.flush();
    if (!std::cout) {
        std::cerr << "kelnodes: cannot write to standard output\n";
        return kWrong;
    }
    return status;
}
