#include "ResultFiles.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "CException.h"
#include "Posix.h"
#include "Text.h"

namespace {

constexpr mode_t kDirectoryMode = 0700;
constexpr mode_t kFileMode = 0600;

}  // namespace

ResultFiles::ResultFiles(std::string directoryName) : directory(std::move(directoryName)) {
    if (directory.empty()) {
        throw CException("the directory for the results has no name");
    }
    if (::mkdir(directory.c_str(), kDirectoryMode) != 0 && errno != EEXIST) {
        Posix::throwErrno("cannot make the directory " + directory);
    }
    struct stat found {};
    if (::stat(directory.c_str(), &found) != 0) {
        Posix::throwErrno("cannot use the directory " + directory);
    }
    if (!S_ISDIR(found.st_mode)) {
        throw CException(directory + " is not a directory");
    }
    if (directory.back() != '/') {
        directory += '/';
    }
}

void ResultFiles::write(const NodeOutcome& outcome) const {
    if (!isFileName(outcome.node)) {
        throw CException("the node \"" + Text::printable(outcome.node) +
                         "\" has a name that cannot be the name of a file");
    }
    const std::string name = directory + outcome.node + ".out";
    // Beside it, then renamed: nobody reads half a file, and a link that lies there is replaced and
    // not followed.
    const std::string fresh = directory + "." + outcome.node + ".out." + std::to_string(::getpid());
    UniqueFd file = Posix::open(fresh, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, kFileMode);
    if (!file) {
        Posix::throwErrno("cannot make " + fresh);
    }
    const bool written = Posix::writeAll(file.get(), outcome.text);
    if (!written || std::rename(fresh.c_str(), name.c_str()) != 0) {
        const int error = errno;
        static_cast<void>(::unlink(fresh.c_str()));
        errno = error;
        Posix::throwErrno("cannot write " + name);
    }
}

bool ResultFiles::isFileName(const std::string& node) {
    return !node.empty() && node != "." && node != ".." &&
           std::none_of(node.begin(), node.end(),
                        [](unsigned char c) { return c == '/' || c < ' ' || c == 0x7F; });
}
