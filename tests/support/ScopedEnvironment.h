#pragma once

#include <cstdlib>
#include <optional>
#include <string>

// Sets or, with a null value, unsets an environment variable for the life of the object.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char* variable, const char* value);
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;
    ~ScopedEnvironment() { put(previous ? previous->c_str() : nullptr); }

private:
    void put(const char* value);

    std::string name;
    std::optional<std::string> previous;
};
