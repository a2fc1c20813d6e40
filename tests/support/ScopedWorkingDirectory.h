#pragma once

#include <filesystem>
#include <string>
#include <system_error>

// Makes a directory the working directory for the life of the object.
class ScopedWorkingDirectory {
public:
    explicit ScopedWorkingDirectory(const std::string& directory);
    ScopedWorkingDirectory(const ScopedWorkingDirectory&) = delete;
    ScopedWorkingDirectory& operator=(const ScopedWorkingDirectory&) = delete;
    ~ScopedWorkingDirectory();

private:
    std::filesystem::path previous;
};
