#pragma once

#include <map>
#include <string>
#include <vector>

// Directories that a child process sees in place of others, so that several "machines" can live on
// one. Everything is prepared before the fork; enter() belongs to the child and allocates nothing.
class OwnMounts {
public:
    // By the path that is covered: another directory, or "tmpfs:" and the options of a new, empty
    // file system.
    explicit OwnMounts(const std::map<std::string, std::string>& mounts);

    // False when the system refuses.
    bool enter() const;

private:
    struct Step {
        std::string target;
        std::string source;
        bool isNew;
    };

    static bool put(const char* file, const std::string& text);

    // An ordinary user becomes root of a user namespace of his own first.
    bool separate() const;

    std::vector<Step> steps;
    std::string userMap;
    std::string groupMap;
};
