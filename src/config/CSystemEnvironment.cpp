#include "CSystemEnvironment.h"

#include "InstallPaths.h"

CSystemEnvironment::CSystemEnvironment() {
    reload();
}

void CSystemEnvironment::reload() {
    installpaths::reload();
}

std::string CSystemEnvironment::getKelshPath() const {
    return installpaths::kelsh().path;
}

std::string CSystemEnvironment::getKelnodePath() const {
    return installpaths::kelnode().path;
}

bool CSystemEnvironment::isDefaultKelshPathUsed() const {
    return installpaths::kelsh().isDefault;
}

bool CSystemEnvironment::isDefaultKelnodePathUsed() const {
    return installpaths::kelnode().isDefault;
}
