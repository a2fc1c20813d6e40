#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "ResultMemory.h"
#include "Sanitizers.h"

namespace {

constexpr std::size_t kMiB = std::size_t{1024} * 1024;

std::size_t residentBytes() {
    std::ifstream counts("/proc/self/statm");
    std::size_t size = 0;
    std::size_t resident = 0;
    counts >> size >> resident;
    return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

// In a process of its own, as the settings stay.
[[noreturn]] void keepThenGiveBack() {
    resultmemory::keepForTheNextResult();
    const std::size_t atFirst = residentBytes();
    std::vector<std::string> results(48, std::string(kMiB, 'x'));
    // Without it the allocator would give everything below back by itself.
    const auto above = std::make_unique<std::string>(std::size_t{200} * 1024, 'y');
    results.clear();
    const bool kept = residentBytes() > atFirst + 40 * kMiB;
    resultmemory::giveBack();
    const bool given = residentBytes() < atFirst + 4 * kMiB;
    std::_Exit(kept && given && !above->empty() ? EXIT_SUCCESS : EXIT_FAILURE);
}

}  // namespace

TEST(ResultMemory, IsKeptForTheNextResultAndGivenBackBetweenCommands) {
    if (kSanitizersAllocator) {
        GTEST_SKIP() << "a sanitizer brings its own allocator";
    }
    EXPECT_EXIT(keepThenGiveBack(), ::testing::ExitedWithCode(EXIT_SUCCESS), "");
}
