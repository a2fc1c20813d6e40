#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <system_error>

// A directory of the test's own; it and all that is in it go when the object dies.
class TempDir {
public:
    TempDir() {
        // Whatever the umask of who runs the tests: files that a group may write are not trusted.
        ::umask(S_IWGRP | S_IWOTH);
        // No dash before the random part: commands are searched for texts like "-r".
        std::string name = (std::filesystem::temp_directory_path() / "kelsh-test.XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("cannot make a temporary directory");
        }
        directory = name;
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(directory, ignored);
    }

    // Without a trailing "/".
    const std::string& path() const { return directory; }
    std::string file(const std::string& name) const { return directory + "/" + name; }

private:
    std::string directory;
};
