#include "TempDir.h"

#include <cstdlib>
#include <stdexcept>
#include <sys/stat.h>
#include <system_error>

TempDir::TempDir() {
    // Whatever the umask of who runs the tests: files that a group may write are not trusted.
    ::umask(S_IWGRP | S_IWOTH);
    // No dash before the random part: commands are searched for texts like "-r".
    std::string name = (std::filesystem::temp_directory_path() / "kelsh-test.XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) {
        throw std::runtime_error("cannot make a temporary directory");
    }
    directory = name;
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(directory, ignored);
}
