#include <string>
#include <type_traits>

#include <gtest/gtest.h>

#include "CAlreadyExistException.h"
#include "CCannotOpenFileException.h"
#include "CDoesNotExistException.h"
#include "CException.h"

TEST(CException, KeepsItsMessage) {
    const CException error("something \"odd\"");
    EXPECT_EQ("something \"odd\"", error.getErrMsg());
    EXPECT_STREQ("something \"odd\"", error.what());
}

TEST(CException, DumpPrintsTheMessageAndANewline) {
    testing::internal::CaptureStdout();
    CException("bad news").dump();
    EXPECT_EQ("bad news\n", testing::internal::GetCapturedStdout());
}

TEST(CException, CopiesKeepTheMessage) {
    const CException first("one");
    CException second("two");
    second = first;
    EXPECT_EQ("one", second.getErrMsg());
    EXPECT_EQ("one", CException(second).getErrMsg());
}

template <typename Subclass>
class CExceptionFamily : public testing::Test {};
using Family =
    testing::Types<CAlreadyExistException, CDoesNotExistException, CCannotOpenFileException>;
TYPED_TEST_SUITE(CExceptionFamily, Family);

TYPED_TEST(CExceptionFamily, IsCaughtAsItsBaseWithItsMessage) {
    static_assert(!std::is_convertible<std::string, TypeParam>::value, "text is not an exception");
    try {
        throw TypeParam(std::string("name"));
    } catch (const CException& error) {
        EXPECT_EQ("name", error.getErrMsg());
        EXPECT_NE(nullptr, dynamic_cast<const TypeParam*>(&error));
        return;
    }
    FAIL();
}
