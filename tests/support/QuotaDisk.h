#pragma once

#include <cstdint>
#include <string>

#include "UniqueFd.h"

// A file system whose content may not become larger than a quota, in a file of the given directory.
// Btrfs, because the kernel does not need the rest of the quota support for it. Needs root and
// mkfs.btrfs; missing() tells what else is not there.
class QuotaDisk {
public:
    QuotaDisk(const std::string& directory, const std::string& mountPoint, std::uint64_t bytes);
    QuotaDisk(const QuotaDisk&) = delete;
    QuotaDisk& operator=(const QuotaDisk&) = delete;
    ~QuotaDisk();

    // Why there is no such file system here; empty when there is.
    const std::string& missing() const { return lack; }

private:
    static constexpr std::uint64_t kDiskBytes = std::uint64_t{256} << 20;
    static constexpr std::uint64_t kTopLevelGroup = 5;

    void lacks(const std::string& what);

    void make(const std::string& image, std::uint64_t bytes);

    // The device goes away with its last user.
    UniqueFd attach(const std::string& image);
    void limit(std::uint64_t bytes);

    std::string point;
    std::string deviceName;
    std::string lack;
    bool mounted = false;
};
