#pragma once

#include <cstdlib>

// What must hold for every input. The fuzzer takes an abort for a finding and keeps the input.
inline void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}
