#include "Processes.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <unistd.h>

namespace {

std::string contentOf(const std::string& path) {
    // A process that ends while it is read makes the read fail, which iterators would throw.
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

std::string proc(pid_t pid, const char* name) {
    return "/proc/" + std::to_string(pid) + "/" + name;
}

std::vector<pid_t> all() {
    std::vector<pid_t> pids;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        const std::string name = entry.path().filename().string();
        if (name.find_first_not_of("0123456789") == std::string::npos) {
            pids.push_back(std::atoi(name.c_str()));
        }
    }
    return pids;
}

struct Stat {
    char state = '?';
    pid_t parent = 0;
    long ticks = 0;
};

Stat statOf(pid_t pid) {
    Stat stat;
    const std::string text = contentOf(proc(pid, "stat"));
    const std::string::size_type name = text.rfind(')');
    long user = 0;
    long system = 0;
    if (name != std::string::npos &&
        std::sscanf(text.c_str() + name + 1, " %c %d %*d %*d %*d %*d %*u %*u %*u %*u %*u %ld %ld",
                    &stat.state, &stat.parent, &user, &system) == 4) {
        stat.ticks = user + system;
    }
    return stat;
}

// Where the first thread has ended, only the others still know it.
std::string commandLineOf(pid_t pid) {
    std::string line = contentOf(proc(pid, "cmdline"));
    std::error_code gone;
    if (line.empty()) {
        for (const auto& task : std::filesystem::directory_iterator(proc(pid, "task"), gone)) {
            line += contentOf(task.path().string() + "/cmdline");
        }
    }
    return line;
}

// The number behind "FIELD:" in the text; 0 where it is missing.
long numberOf(const std::string& text, const std::string& field) {
    const std::string::size_type at = text.find(field + ":");
    return at == std::string::npos ? 0 : std::atol(text.c_str() + at + field.size() + 1);
}

}  // namespace

namespace processes {

long statusKiB(pid_t pid, const std::string& field) {
    return numberOf(contentOf(proc(pid, "status")), field);
}

long privateKiB(const std::vector<pid_t>& pids) {
    long sum = 0;
    for (const pid_t pid : pids) {
        const std::string rollup = contentOf(proc(pid, "smaps_rollup"));
        sum += numberOf(rollup, "Private_Dirty");
    }
    return sum;
}

long openDescriptors(pid_t pid) {
    std::error_code gone;
    const std::filesystem::directory_iterator entries(proc(pid, "fd"), gone);
    return gone ? 0 : static_cast<long>(std::distance(begin(entries), end(entries)));
}

long processorMs(pid_t pid) {
    return statOf(pid).ticks * 1000 / ::sysconf(_SC_CLK_TCK);
}

std::vector<pid_t> tree(pid_t root) {
    std::multimap<pid_t, pid_t> byParent;
    for (const pid_t pid : all()) {
        byParent.emplace(statOf(pid).parent, pid);
    }
    std::vector<pid_t> found{root};
    for (std::size_t at = 0; at < found.size(); ++at) {
        const auto children = byParent.equal_range(found[at]);
        std::transform(children.first, children.second, std::back_inserter(found),
                       [](const auto& child) { return child.second; });
    }
    return found;
}

long zombies(pid_t root) {
    const std::vector<pid_t> pids = tree(root);
    return std::count_if(pids.begin(), pids.end(),
                         [](pid_t pid) { return statOf(pid).state == 'Z'; });
}

std::vector<Sighting> sightings(const std::string& text) {
    std::vector<Sighting> found;
    for (const pid_t pid : all()) {
        const auto at = std::chrono::steady_clock::now();
        std::string line = pid == ::getpid() ? "" : commandLineOf(pid);
        if (line.find(text) != std::string::npos) {
            found.push_back({std::move(line), at});
        }
    }
    return found;
}

}  // namespace processes
