#include "io/Exceptions.h"

#include <gtest/gtest.h>

#include <exception>
#include <ios>
#include <string>
#include <system_error>
#include <type_traits>

namespace Corvane {
namespace Io {
namespace {

/// What the standard library in use says of a stream error: "iostream stream error" or "iostream error".
std::string streamErrorText() {
    return std::iostream_category().message(1);
}

template <class Handler>
std::string caughtAs() {
    try {
        throw TimeoutException("Pipe write timed out");
    } catch (const Handler& e) {
        return e.what();
    }
}

TEST(Exceptions, ATimeoutIsCaughtByEachOfItsBases) {
    const std::string WHAT = "Pipe write timed out: " + streamErrorText();
    EXPECT_EQ(caughtAs<TimeoutException>(), WHAT);
    EXPECT_EQ(caughtAs<CvPipeException>(), WHAT);
    EXPECT_EQ(caughtAs<std::ios_base::failure>(), WHAT);
    EXPECT_EQ(caughtAs<std::system_error>(), WHAT);
    EXPECT_EQ(caughtAs<std::exception>(), WHAT);
}

TEST(Exceptions, TheMessageIsBareAndTheCodeIsZeroUnlessGiven) {
    TimeoutException plain("Pipe write timed out");
    EXPECT_EQ(plain.getMessage(), "Pipe write timed out");
    EXPECT_EQ(plain.getCode(), 0);
    CvPipeException coded("head", 1011);
    EXPECT_EQ(coded.getMessage(), "head");
    EXPECT_EQ(coded.getCode(), 1011);
    EXPECT_EQ(static_cast<std::system_error&>(coded).code(), std::error_code(std::io_errc::stream));
}

TEST(Exceptions, MisuseIsNotAStandardException) {
    EXPECT_FALSE((std::is_base_of_v<std::exception, IllegalStateException>));
    EXPECT_FALSE((std::is_base_of_v<std::exception, IllegalArgumentException>));
    bool own = false;
    try {
        throw IllegalStateException("wrong state", 7);
    } catch (const std::exception&) {
        ADD_FAILURE() << "caught as a standard exception";
    } catch (const IllegalStateException& e) {
        own = e.getMessage() == "wrong state" && e.getCode() == 7;
    }
    EXPECT_TRUE(own);
}

template <class Exception>
class ExceptionFamily : public ::testing::Test {};

using Family = ::testing::Types<CvPipeException, BindException, BrokenPipeException, ConnectException,
                                InterruptedException, TimeoutException, IllegalStateException>;
TYPED_TEST_SUITE(ExceptionFamily, Family);

TYPED_TEST(ExceptionFamily, CopiesAndAssignmentsCarryMessageAndCode) {
    const TypeParam original("first", 5);
    TypeParam copy(original);
    EXPECT_EQ(copy.getMessage(), "first");
    EXPECT_EQ(copy.getCode(), 5);
    TypeParam other("second");
    EXPECT_EQ(other.getCode(), 0);
    other = original;
    EXPECT_EQ(other.getMessage(), "first");
    EXPECT_EQ(other.getCode(), 5);
}

TEST(Exceptions, AnAssignmentReplacesTheStandardPartToo) {
    ConnectException target("old");
    target = ConnectException("new");
    EXPECT_EQ(target.what(), "new: " + streamErrorText());
}

}  // namespace
}  // namespace Io
}  // namespace Corvane
