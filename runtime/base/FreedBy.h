#pragma once

#include <memory>

// Owns what a C library has made and wants back through a function of its own:
//     using Certificate = FreedBy<X509, X509_free>;
template <auto Free>
struct FreeWith {
    template <typename T>
    void operator()(T* doomed) const {
        Free(doomed);
    }
};

template <typename T, auto Free>
using FreedBy = std::unique_ptr<T, FreeWith<Free>>;
