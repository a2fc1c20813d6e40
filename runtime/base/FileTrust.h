#pragma once

#include <set>
#include <string>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>
#include <vector>

// Finds files that somebody else could change. A program of root believes or runs only files that
// belong to root, or to the user it runs as, and that nobody else may write. The same holds for
// every directory above them, and for the path of each symbolic link on the way. A sticky directory
// such as /tmp is accepted above a file, since users cannot replace the files of others there.
//
// Only the mode counts. A file is a finding even when a directory above it keeps others out today.
// An access list that lets others write shows as the group's permission.
//
// Collects findings over several calls and names each path once. Use from one thread only.
class FileTrust {
public:
    struct Finding {
        std::string path;
        std::string problem;  // "can be written by others (mode 0666)"
        std::string remedy;   // the command that corrects it

        // "<path> <problem>: <remedy>"
        std::string text() const;
    };

    // user: whose files are accepted beside those of root.
    explicit FileTrust(uid_t user = ::geteuid()) : self(user) {}

    // Checks the file or directory and everything above it. A directory that is itself named must
    // not be writable by others even when it is sticky: they could put new files into it. A path
    // that does not exist or cannot be reached is no finding. Of a device only the directories
    // above it are checked.
    void examine(const std::string& path);
    // Checks the directory as examine() does, and everything directly in it.
    void examineEntries(const std::string& directory);

    const std::vector<Finding>& findings() const { return found; }

    // For a file that only its owner should read: a finding when others may read it, else one with
    // an empty path. It does not check who may write the file; examine() does.
    static Finding examineSecret(const std::string& path);

private:
    void check(const std::string& path, const struct stat& status, bool stickyIsEnough);

    uid_t self;
    std::set<std::string> seen;
    std::vector<Finding> found;
};
