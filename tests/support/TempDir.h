#pragma once

#include <filesystem>
#include <string>

// A directory of the test's own; it and all that is in it go when the object dies.
class TempDir {
public:
    TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    ~TempDir();

    // Without a trailing "/".
    const std::string& path() const { return directory; }
    std::string file(const std::string& name) const { return directory + "/" + name; }

private:
    std::string directory;
};
