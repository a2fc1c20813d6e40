#pragma once

#include <set>
#include <string>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>
#include <vector>

// Finds files that somebody else could change: files that a program of root believes or runs must
// belong to root, or to the user the program runs as, and nobody else may write them. The same
// holds for every directory above them, of each symbolic link on the way too. A sticky directory
// such as /tmp is accepted above a file, since nobody can replace the files of others there.
//
// What counts is the mode alone: that a directory further up keeps others out today excuses
// nothing. An access list that lets others write shows as the group's permission.
//
// Collects findings over several calls and names each path once. Not for use from several threads.
class FileTrust {
public:
    struct Finding {
        std::string path;
        std::string problem;  // "can be written by others (mode 0666)"
        std::string remedy;   // the command that mends it

        // "<path> <problem>: <remedy>"
        std::string text() const;
    };

    // user: whose files are accepted beside those of root.
    explicit FileTrust(uid_t user = ::geteuid()) : self(user) {}

    // The file or directory and all above it. Of a directory that is named itself not even a sticky
    // one may be written by others: they could put new files into it. What does not exist or cannot
    // be reached is no finding. A device is not looked at, only the directories above it.
    void examine(const std::string& path);
    // The directory as examine() does, and everything that lies directly in it.
    void examineEntries(const std::string& directory);

    const std::vector<Finding>& findings() const { return found; }

    // A file that only its owner should read: a finding where others may read it, else an empty
    // one, whose path is empty. Who may write it is for examine() to say.
    static Finding examineSecret(const std::string& path);

private:
    void check(const std::string& path, const struct stat& status, bool stickyIsEnough);

    uid_t self;
    std::set<std::string> seen;
    std::vector<Finding> found;
};
