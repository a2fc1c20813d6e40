
#include "ConfigError.h"
#include "ConfigErrorCollector.h"
#include "Contract.h"

namespace {

constexpr auto kWarning = static_cast<CONFIGERROR_LEVEL>(1);
constexpr auto kError = static_cast<CONFIGERROR_LEVEL>(2);

class CountedError : public ConfigError {
public:
    explicit CountedError(int& aliveCount) : ConfigError(3, "counted"), alive(aliveCount) {
        ++alive;
    }
    CountedError(const CountedError&) = delete;
    CountedError& operator=(const CountedError&) = delete;
    ~CountedError() override { --alive; }

private:
    int& alive;
};

}  // namespace

TEST(ConfigErrorContract, PrintsItsLineUnlessItIsZero) {
    EXPECT_EQ(ConfigError(12, "text").toString(), "Line:12, text");
    EXPECT_EQ(ConfigError(0, "text").toString(), "text");
    EXPECT_EQ(ConfigError(-1, "text").toString(), "Line:-1, text");
    EXPECT_EQ(ConfigError(7, "").toString(), "Line:7, ");
    EXPECT_EQ(ConfigError(0, "").toString(), "");
}

TEST(ConfigErrorContract, KeepsWhatItWasMadeOfAndIsAnErrorByDefault) {
    const ConfigError warning(5, kWarning, "w");
    EXPECT_EQ(warning.getLine(), 5);
    EXPECT_EQ(warning.getLevel(), 1);
    EXPECT_EQ(warning.getErrorMessage(), "w");
    EXPECT_EQ(ConfigError(5, std::string("e")).getLevel(), 2);
}

TEST(ConfigErrorCollectorContract, CountsAndPrintsAllOrOneLevelInOrder) {
    ConfigErrorCollector errors;
    EXPECT_EQ(errors.getSize(), 0);
    EXPECT_EQ(errors.toString(), "");
    errors.addError(4, kError, "e4");
    errors.addError(2, kWarning, "w2");
    errors.addError(0, "e0");
    errors.addError(new ConfigError(9, "e9"));
    EXPECT_EQ(errors.getSize(), 4);
    EXPECT_EQ(errors.getSize(kWarning), 1);
    EXPECT_EQ(errors.getSize(kError), 3);
    EXPECT_EQ(errors.getSize(static_cast<CONFIGERROR_LEVEL>(3)), 0);
    EXPECT_EQ(errors.toString(), "Line:4, e4\nLine:2, w2\ne0\nLine:9, e9\n");
    EXPECT_EQ(errors.toString(kWarning), "Line:2, w2\n");
    EXPECT_EQ(errors.toString(kError), "Line:4, e4\ne0\nLine:9, e9\n");
}

TEST(ConfigErrorCollectorContract, OneLevelOfNoEntriesIsEmptyText) {
    ConfigErrorCollector errors;
    errors.addError(1, "e");
    EXPECT_EQ(errors.toString(kWarning), "");
    EXPECT_EQ(errors.getSize(kWarning), 0);
}

TEST(ConfigErrorCollectorContract, OwnsItsEntriesUntilClearedOrDestroyed) {
    int alive = 0;
    {
        ConfigErrorCollector errors;
        errors.addError(new CountedError(alive));
        errors.addError(new CountedError(alive));
        ASSERT_EQ(alive, 2);
        errors.clear();
        EXPECT_EQ(alive, 0);
        EXPECT_EQ(errors.getSize(), 0);
        EXPECT_EQ(errors.toString(), "");
        errors.addError(new CountedError(alive));
        EXPECT_EQ(errors.getSize(), 1);
    }
    EXPECT_EQ(alive, 0);
}

TEST(ConfigErrorCollectorContract, HandsOutACopyOfItsListOfItsOwnEntries) {
    ConfigErrorCollector errors;
    auto* added = new ConfigError(1, "a");
    errors.addError(added);
    std::list<ConfigError*> copy = errors.getErrorList();
    EXPECT_EQ(asVector(copy), (std::vector<ConfigError*>{added}));
    copy.clear();
    EXPECT_EQ(errors.getSize(), 1);
    EXPECT_EQ(errors.getErrorList().front(), added);
}
