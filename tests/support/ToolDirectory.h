#pragma once

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/stat.h>

#include "ScopedEnvironment.h"
#include "TempDir.h"

// A directory of stand-in programs that comes first on PATH while the object lives.
class ToolDirectory {
public:
    ToolDirectory() : path_("PATH", (directory_.path() + ":" + std::getenv("PATH")).c_str()) {}

    // A program that records its arguments, one line "<name> [first] [second]" a call, and then
    // runs the shell text.
    void add(const std::string& name, const std::string& shellText) {
        const std::string program = directory_.file(name);
        {
            std::ofstream file(program);
            file << "#!/bin/sh\n{ printf '%s' '" << name << "'; for a in \"$@\"; do printf ' [%s]' "
                 << "\"$a\"; done; echo; } >> '" << calls_ << "'\n"
                 << shellText << "\n";
        }
        chmod(program.c_str(), 0755);
    }
    std::string calls() const { return contents(calls_); }
    std::string path() const { return directory_.path(); }
    std::string file(const std::string& name) const { return directory_.file(name); }

    static std::string contents(const std::string& file) {
        std::ifstream stream(file);
        std::ostringstream text;
        text << stream.rdbuf();
        return text.str();
    }

private:
    TempDir directory_;
    TempDir records_;
    std::string calls_ = records_.file("calls");
    ScopedEnvironment path_;
};
