#pragma once

#include <fcntl.h>
#include <map>
#include <string>
#include <sys/mount.h>
#include <unistd.h>
#include <vector>

#include <sched.h>

// Directories that a child process sees in place of others, so that several "machines" can live on
// one. Everything is prepared before the fork; enter() belongs to the child and allocates nothing.
class OwnMounts {
public:
    // By the path that is covered: another directory, or "tmpfs:" and the options of a new, empty
    // file system.
    explicit OwnMounts(const std::map<std::string, std::string>& mounts)
        : userMap("0 " + std::to_string(::getuid()) + " 1"),
          groupMap("0 " + std::to_string(::getgid()) + " 1") {
        const std::string tmpfs = "tmpfs:";
        for (const auto& [target, source] : mounts) {
            const bool isNew = source.rfind(tmpfs, 0) == 0;
            steps.push_back({target, isNew ? source.substr(tmpfs.size()) : source, isNew});
        }
    }

    // False when the system refuses.
    bool enter() const {
        if (steps.empty()) {
            return true;
        }
        if (!separate() || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
            return false;
        }
        for (const Step& step : steps) {
            const char* target = step.target.c_str();
            const int refused =
                step.isNew ? ::mount("tmpfs", target, "tmpfs", 0, step.source.c_str())
                           : ::mount(step.source.c_str(), target, nullptr, MS_BIND, nullptr);
            if (refused != 0) {
                return false;
            }
        }
        return true;
    }

private:
    struct Step {
        std::string target;
        std::string source;
        bool isNew;
    };

    static bool put(const char* file, const std::string& text) {
        const int fd = ::open(file, O_WRONLY | O_CLOEXEC);
        const bool written =
            fd >= 0 && ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
        ::close(fd);
        return written;
    }

    // An ordinary user becomes root of a user namespace of his own first.
    bool separate() const {
        if (::unshare(CLONE_NEWNS) == 0) {
            return true;
        }
        static const std::string deny = "deny";
        return ::unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 && put("/proc/self/setgroups", deny) &&
               put("/proc/self/uid_map", userMap) && put("/proc/self/gid_map", groupMap);
    }

    std::vector<Step> steps;
    std::string userMap;
    std::string groupMap;
};
