#include "ScopedEnvironment.h"

ScopedEnvironment::ScopedEnvironment(const char* variable, const char* value) : name(variable) {
    const char* before = std::getenv(variable);
    if (before != nullptr) {
        previous = before;
    }
    put(value);
}

void ScopedEnvironment::put(const char* value) {
    if (value == nullptr) {
        ::unsetenv(name.c_str());
    } else {
        ::setenv(name.c_str(), value, 1);
    }
}
