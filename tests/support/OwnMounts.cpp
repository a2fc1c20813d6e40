#include "OwnMounts.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <sched.h>

OwnMounts::OwnMounts(const std::map<std::string, std::string>& mounts)
    : userMap("0 " + std::to_string(::getuid()) + " 1"),
      groupMap("0 " + std::to_string(::getgid()) + " 1") {
    const std::string tmpfs = "tmpfs:";
    for (const auto& [target, source] : mounts) {
        const bool isNew = source.rfind(tmpfs, 0) == 0;
        steps.push_back({target, isNew ? source.substr(tmpfs.size()) : source, isNew});
    }
}

bool OwnMounts::enter() const {
    if (steps.empty()) {
        return true;
    }
    if (!separate() || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        return false;
    }
    for (const Step& step : steps) {
        const char* target = step.target.c_str();
        const int refused = step.isNew
                                ? ::mount("tmpfs", target, "tmpfs", 0, step.source.c_str())
                                : ::mount(step.source.c_str(), target, nullptr, MS_BIND, nullptr);
        if (refused != 0) {
            return false;
        }
    }
    return true;
}

bool OwnMounts::put(const char* file, const std::string& text) {
    const int fd = ::open(file, O_WRONLY | O_CLOEXEC);
    const bool written =
        fd >= 0 && ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    ::close(fd);
    return written;
}

bool OwnMounts::separate() const {
    if (::unshare(CLONE_NEWNS) == 0) {
        return true;
    }
    static const std::string deny = "deny";
    return ::unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 && put("/proc/self/setgroups", deny) &&
           put("/proc/self/uid_map", userMap) && put("/proc/self/gid_map", groupMap);
}
