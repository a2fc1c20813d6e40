#include "CSystemEnvironment.h"

#include <cstdlib>
#include <mutex>

namespace {

struct InstallPath {
    std::string path;
    bool isDefault = true;
};

struct Installation {
    std::mutex lock;
    InstallPath kelsh;
    InstallPath kelnode;
};

// Made on first use and never destroyed: workers that are left at exit may still use it.
Installation& installation() {
    static Installation* const instance = new Installation;
    return *instance;
}

InstallPath readVariable(const char* name, const char* fallback) {
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

CSystemEnvironment::CSystemEnvironment() {
    reload();
}

void CSystemEnvironment::reload() {
    Installation& state = installation();
    const std::lock_guard<std::mutex> guard(state.lock);
    state.kelsh = readVariable("KELSH_PATH", "/opt/kelsh/");
    state.kelnode = readVariable("KELNODE_PATH", "/opt/kelnode/");
}

std::string CSystemEnvironment::getKelshPath() const {
    Installation& state = installation();
    const std::lock_guard<std::mutex> guard(state.lock);
    return state.kelsh.path;
}

std::string CSystemEnvironment::getKelnodePath() const {
    Installation& state = installation();
    const std::lock_guard<std::mutex> guard(state.lock);
    return state.kelnode.path;
}

bool CSystemEnvironment::isDefaultKelshPathUsed() const {
    Installation& state = installation();
    const std::lock_guard<std::mutex> guard(state.lock);
    return state.kelsh.isDefault;
}

bool CSystemEnvironment::isDefaultKelnodePathUsed() const {
    Installation& state = installation();
    const std::lock_guard<std::mutex> guard(state.lock);
    return state.kelnode.isDefault;
}
