#include "ToolDirectory.h"

#include <sstream>
#include <sys/stat.h>

void ToolDirectory::add(const std::string& name, const std::string& shellText) {
    const std::string program = directory_.file(name);
    {
        std::ofstream file(program);
        file << "#!/bin/sh\n{ printf '%s' '" << name << "'; for a in \"$@\"; do printf ' [%s]' "
             << "\"$a\"; done; echo; } >> '" << calls_ << "'\n"
             << shellText << "\n";
    }
    chmod(program.c_str(), 0755);
}

std::string ToolDirectory::contents(const std::string& file) {
    std::ifstream stream(file);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}
