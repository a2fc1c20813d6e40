#include "PathPrefix.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

#include "Posix.h"

namespace {

// The kernel gives up when directories are renamed while it looks.
constexpr int kMostTries = 100;

struct MemoryFreer {
    void operator()(char* memory) const { std::free(memory); }
};

bool hasPart(const std::string& path, const std::string& part) {
    return (path + "/").find("/" + part + "/") != std::string::npos;
}

UniqueFd openBeneath(int directory, const std::string& name, std::uint64_t resolve) {
    open_how how{};
    how.flags = O_PATH | O_CLOEXEC;
    how.resolve = resolve | RESOLVE_NO_MAGICLINKS;
    long found = -1;
    for (int i = 0; i < kMostTries; ++i) {
        found = ::syscall(SYS_openat2, directory, name.c_str(), &how, sizeof how);
        if (found >= 0 || (errno != EAGAIN && errno != EINTR)) {
            break;
        }
    }
    return UniqueFd(static_cast<int>(found));
}

// Said by the kernel of what would lead out.
bool leadsOut(int error) {
    return error == EXDEV || error == ELOOP;
}

}  // namespace

bool PathPrefix::open() {
    UniqueFd opened = Posix::open(path, O_PATH);
    struct stat found {};
    if (!opened || ::fstat(opened.get(), &found) != 0) {
        return false;
    }
    if (!S_ISDIR(found.st_mode)) {
        const std::unique_ptr<char, MemoryFreer> real(::realpath(path.c_str(), nullptr));
        if (!real) {
            return false;
        }
        const std::string name = real.get();
        const std::string::size_type slash = name.rfind('/');
        opened = Posix::open(slash == 0 ? "/" : name.substr(0, slash), O_PATH | O_DIRECTORY);
        file = name.substr(slash + 1);
    }
    if (opened) {
        directory = std::make_shared<const UniqueFd>(std::move(opened));
    }
    return isOpen();
}

std::string PathPrefix::faultOf(const std::string& prefix) {
    if (prefix.empty() || prefix.front() != '/') {
        return "\"" + prefix + "\" is not an absolute path";
    }
    if (prefix != "/" && (hasPart(prefix, "") || hasPart(prefix, ".") || hasPart(prefix, ".."))) {
        return "\"" + prefix + "\" has an empty, \".\" or \"..\" part";
    }
    return "";
}

bool PathPrefix::covers(const std::string& prefix, const std::string& path) {
    if (prefix == "/") {
        return !path.empty() && path.front() == '/';
    }
    return !prefix.empty() && path.compare(0, prefix.size(), prefix) == 0 &&
           (path.size() == prefix.size() || path[prefix.size()] == '/');
}

bool PathPrefix::anyCovers(const std::list<PathPrefix>& prefixes, const std::string& path) {
    return !hasPart(path, "..") &&
           std::any_of(prefixes.begin(), prefixes.end(),
                       [&](const PathPrefix& prefix) { return covers(prefix.text(), path); });
}

UniqueFd PathPrefix::resolve(const std::string& wanted, int& error) const {
    const std::string::size_type from = wanted.find_first_not_of('/', path.size());
    const std::string rest = from == std::string::npos ? "" : wanted.substr(from);
    UniqueFd handle;
    if (file.empty()) {
        // Below "/" an absolute link leads to where it says.
        const std::uint64_t how = path == "/" ? RESOLVE_IN_ROOT : RESOLVE_BENEATH;
        handle = openBeneath(directory->get(), rest.empty() ? "." : rest, how);
    } else if (rest.empty()) {
        handle = openBeneath(directory->get(), file, RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS);
    } else {
        errno = ENOTDIR;
    }
    error = handle ? 0 : errno;
    return handle;
}

UniqueFd PathPrefix::resolveAny(const std::list<PathPrefix>& prefixes, const std::string& wanted,
                                int& error) {
    // Before the file system is asked: not even whether something exists is told.
    error = EXDEV;
    UniqueFd handle;
    for (const PathPrefix& prefix : prefixes) {
        if (!handle && leadsOut(error) && prefix.isOpen() && !hasPart(wanted, "..") &&
            covers(prefix.text(), wanted)) {
            handle = prefix.resolve(wanted, error);
        }
    }
    if (!handle && leadsOut(error)) {
        throw Outside(kOutside);
    }
    return handle;
}

bool PathPrefix::exists(const std::list<PathPrefix>& prefixes, const std::string& path) {
    int error = 0;
    return static_cast<bool>(resolveAny(prefixes, path, error));
}

UniqueFd PathPrefix::openFile(const std::list<PathPrefix>& prefixes, const std::string& path) {
    // A handle first: opening a device or a FIFO in earnest would have effects.
    int error = 0;
    const UniqueFd handle = resolveAny(prefixes, path, error);
    if (!handle) {
        throw CException(std::strerror(error));
    }
    struct stat found {};
    if (::fstat(handle.get(), &found) != 0 || !S_ISREG(found.st_mode)) {
        throw CException(S_ISDIR(found.st_mode) ? "it is a directory" : "it is no regular file");
    }
    UniqueFd opened =
        Posix::open("/proc/self/fd/" + std::to_string(handle.get()), O_RDONLY | O_NOCTTY);
    if (!opened) {
        throw CException(std::strerror(errno));
    }
    return opened;
}
