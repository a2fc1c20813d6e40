#include "InstallPaths.h"

#include <cstdlib>
#include <mutex>

namespace installpaths {
namespace {

struct Installation {
    std::mutex lock;
    Place kelsh;
    Place kelnode;
};

// Made on first use and never destroyed: workers abandoned at exit may still ask for it.
Installation& installation() {
    static Installation* const only = new Installation;
    return *only;
}

Place readVariable(const char* name, const char* fallback) {
    const char* value = std::getenv(name);
    if (value == nullptr || *value == '\0') {
        return {fallback, true};
    }
    std::string path = value;
    if (path.back() != '/') {
        path += '/';
    }
    return {path, false};
}

}  // namespace

void reload() {
    Installation& state = installation();
    const std::lock_guard<std::mutex> guard(state.lock);
    state.kelsh = readVariable("KELSH_PATH", "/opt/kelsh/");
    state.kelnode = readVariable("KELNODE_PATH", "/opt/kelnode/");
}

Place kelsh() {
    Installation& state = installation();
    const std::lock_guard<std::mutex> guard(state.lock);
    return state.kelsh;
}

Place kelnode() {
    Installation& state = installation();
    const std::lock_guard<std::mutex> guard(state.lock);
    return state.kelnode;
}

}  // namespace installpaths
