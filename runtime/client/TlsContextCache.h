#pragma once

#include <array>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "TlsContext.h"

// The clients' TLS contexts: one for each set of files, made anew when one of the files, or the
// revocation list beside them, was replaced. Safe from any thread.
class TlsContextCache {
public:
    TlsContextCache() = default;
    TlsContextCache(const TlsContextCache&) = delete;
    TlsContextCache& operator=(const TlsContextCache&) = delete;

    // Throws CException that names the file and what is wrong with it.
    std::shared_ptr<TlsContext> get(const TlsFiles& files);

private:
    // Tells one version of a file from another; also which files do not exist.
    using Stamp = std::array<long long, 6>;
    using Key = std::array<std::string, 3>;
    struct Entry {
        std::vector<Stamp> stamps;
        std::shared_ptr<TlsContext> context;
    };

    static Stamp stampOf(const std::string& file);

    std::mutex mutex;
    std::map<Key, Entry> entries;  // guarded by mutex
};
