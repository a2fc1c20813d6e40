#pragma once

#include <cstdlib>
#include <fstream>
#include <string>

#include "ScopedEnvironment.h"
#include "TempDir.h"

// A directory of stand-in programs that comes first on PATH while the object lives.
class ToolDirectory {
public:
    ToolDirectory() : path_("PATH", (directory_.path() + ":" + std::getenv("PATH")).c_str()) {}

    // A program that records its arguments, one line "<name> [first] [second]" a call, and then
    // runs the shell text.
    void add(const std::string& name, const std::string& shellText);
    std::string calls() const { return contents(calls_); }
    std::string path() const { return directory_.path(); }
    std::string file(const std::string& name) const { return directory_.file(name); }

    static std::string contents(const std::string& file);

private:
    TempDir directory_;
    TempDir records_;
    std::string calls_ = records_.file("calls");
    ScopedEnvironment path_;
};
