#pragma once

#include <memory>

// Owns an object of a C library and frees it with the function of that library:
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
