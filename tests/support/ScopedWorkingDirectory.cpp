#include "ScopedWorkingDirectory.h"

ScopedWorkingDirectory::ScopedWorkingDirectory(const std::string& directory)
    : previous(std::filesystem::current_path()) {
    std::filesystem::current_path(directory);
}

ScopedWorkingDirectory::~ScopedWorkingDirectory() {
    std::error_code ignored;
    std::filesystem::current_path(previous, ignored);
}
