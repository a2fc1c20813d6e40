#pragma once

#include <filesystem>
#include <string>
#include <system_error>

// Makes a directory the working directory for the life of the object.
class ScopedWorkingDirectory {
public:
    explicit ScopedWorkingDirectory(const std::string& directory)
        : previous(std::filesystem::current_path()) {
        std::filesystem::current_path(directory);
    }
    ScopedWorkingDirectory(const ScopedWorkingDirectory&) = delete;
    ScopedWorkingDirectory& operator=(const ScopedWorkingDirectory&) = delete;
    ~ScopedWorkingDirectory() {
        std::error_code ignored;
        std::filesystem::current_path(previous, ignored);
    }

private:
    std::filesystem::path previous;
};
