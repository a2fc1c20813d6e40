#include "ConfigError.h"
#include "ConfigErrorCollector.h"
#include "Observed.h"

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

TEST(ConfigErrorCollector, CountsAndPrintsAllOrOneLevelInOrder) {
    ConfigErrorCollector errors;
    EXPECT_EQ(0, errors.getSize());
    EXPECT_EQ("", errors.toString());
    EXPECT_TRUE(errors.getErrorList().empty());
    errors.addError(4, kError, "e4");
    errors.addError(2, kWarning, "w2");
    errors.addError(0, "e0");
    errors.addError(new ConfigError(9, "e9"));
    EXPECT_EQ(4, errors.getSize());
    EXPECT_EQ(1, errors.getSize(kWarning));
    EXPECT_EQ(3, errors.getSize(kError));
    EXPECT_EQ(0, errors.getSize(static_cast<CONFIGERROR_LEVEL>(3)));
    EXPECT_EQ("Line:4, e4\nLine:2, w2\ne0\nLine:9, e9\n", errors.toString());
    EXPECT_EQ("Line:2, w2\n", errors.toString(kWarning));
    EXPECT_EQ("Line:4, e4\ne0\nLine:9, e9\n", errors.toString(kError));
}

TEST(ConfigErrorCollector, OneLevelOfNoEntriesIsEmptyText) {
    ConfigErrorCollector errors;
    errors.addError(1, "e");
    EXPECT_EQ("", errors.toString(kWarning));
    EXPECT_EQ(0, errors.getSize(kWarning));
}

TEST(ConfigErrorCollector, OwnsItsEntriesUntilClearedOrDestroyed) {
    int alive = 0;
    {
        ConfigErrorCollector errors;
        errors.addError(new CountedError(alive));
        errors.addError(new CountedError(alive));
        ASSERT_EQ(2, alive);
        errors.clear();
        EXPECT_EQ(0, alive);
        EXPECT_EQ(0, errors.getSize());
        EXPECT_EQ("", errors.toString());
        errors.addError(new CountedError(alive));
        EXPECT_EQ(1, errors.getSize());
    }
    EXPECT_EQ(0, alive);
}

TEST(ConfigErrorCollector, HandsOutACopyOfItsListOfItsOwnEntries) {
    ConfigErrorCollector errors;
    auto* added = new ConfigError(1, "a");
    errors.addError(added);
    std::list<ConfigError*> copy = errors.getErrorList();
    EXPECT_EQ((std::vector<ConfigError*>{added}), asVector(copy));
    copy.clear();
    EXPECT_EQ(1, errors.getSize());
    EXPECT_EQ(added, errors.getErrorList().front());
}
