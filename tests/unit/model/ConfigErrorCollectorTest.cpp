#include <gtest/gtest.h>

#include "ConfigErrorCollector.h"

namespace {

class WatchedError : public ConfigError {
public:
    explicit WatchedError(int* counter) : ConfigError(1, "watched"), deleted(counter) {}
    WatchedError(const WatchedError&) = delete;
    WatchedError& operator=(const WatchedError&) = delete;
    ~WatchedError() override { ++*deleted; }

private:
    int* deleted;
};

}  // namespace

TEST(ConfigErrorCollector, StartsEmpty) {
    const ConfigErrorCollector errors;
    EXPECT_EQ(0, errors.getSize());
    EXPECT_EQ("", errors.toString());
    EXPECT_TRUE(errors.getErrorList().empty());
}

TEST(ConfigErrorCollector, CountsAllOrOneLevel) {
    ConfigErrorCollector errors;
    errors.addError(1, CONFIG_WARNING, "a");
    errors.addError(2, CONFIG_ERROR, "b");
    errors.addError(3, "c");
    EXPECT_EQ(3, errors.getSize());
    EXPECT_EQ(2, errors.getSize(CONFIG_ERROR));
    EXPECT_EQ(1, errors.getSize(CONFIG_WARNING));
}

TEST(ConfigErrorCollector, PrintsEachEntryOnItsLineInTheOrderAdded) {
    ConfigErrorCollector errors;
    errors.addError(7, "later line first");
    errors.addError(0, CONFIG_WARNING, "no line");
    errors.addError(new ConfigError(3, "given"));
    EXPECT_EQ("Line:7, later line first\nno line\nLine:3, given\n", errors.toString());
    EXPECT_EQ("no line\n", errors.toString(CONFIG_WARNING));
    EXPECT_EQ("Line:7, later line first\nLine:3, given\n", errors.toString(CONFIG_ERROR));
}

TEST(ConfigErrorCollector, PrintsNothingForALevelWithoutEntries) {
    ConfigErrorCollector errors;
    errors.addError(3, "only an error");
    EXPECT_EQ("", errors.toString(CONFIG_WARNING));
}

TEST(ConfigErrorCollector, ListIsACopyOfThePointers) {
    ConfigErrorCollector errors;
    errors.addError(1, "kept");
    std::list<ConfigError*> list = errors.getErrorList();
    ASSERT_EQ(1U, list.size());
    EXPECT_EQ("kept", list.front()->getErrorMessage());
    list.clear();
    EXPECT_EQ(1, errors.getSize());
}

TEST(ConfigErrorCollector, ClearDeletesTheEntries) {
    int deleted = 0;
    ConfigErrorCollector errors;
    errors.addError(new WatchedError(&deleted));
    errors.addError(new WatchedError(&deleted));
    errors.clear();
    EXPECT_EQ(2, deleted);
    EXPECT_EQ(0, errors.getSize());
    errors.addError(new WatchedError(&deleted));
    EXPECT_EQ(1, errors.getSize());
}

TEST(ConfigErrorCollector, DestructorDeletesTheEntries) {
    int deleted = 0;
    {
        ConfigErrorCollector errors;
        errors.addError(new WatchedError(&deleted));
    }
    EXPECT_EQ(1, deleted);
}
