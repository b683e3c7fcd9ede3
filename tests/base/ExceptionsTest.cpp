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

/// What all six classes of the family keep.
template <class T>
class PipeExceptionFamily : public testing::Test {};

using Family = testing::Types<CvPipeException, BindException, BrokenPipeException, ConnectException,
                              InterruptedException, TimeoutException>;

struct FamilyNames {
    template <class T>
    static std::string GetName(int index) {
        static const char* const NAMES[] = {"CvPipe", "Bind", "BrokenPipe", "Connect", "Interrupted", "Timeout"};
        return NAMES[index];
    }
};
TYPED_TEST_SUITE(PipeExceptionFamily, Family, FamilyNames);

TYPED_TEST(PipeExceptionFamily, KeepsTheMessageAndHasCodeZeroByDefault) {
    TypeParam exception("Pipe write timed out");
    EXPECT_EQ(exception.getMessage(), "Pipe write timed out");
    EXPECT_EQ(exception.getCode(), 0);
}

TYPED_TEST(PipeExceptionFamily, KeepsACode) {
    TypeParam exception("text", -1013);
    EXPECT_EQ(exception.getMessage(), "text");
    EXPECT_EQ(exception.getCode(), -1013);
}

TYPED_TEST(PipeExceptionFamily, WhatAddsTheTextOfAStreamError) {
    const TypeParam exception("Pipe write timed out");
    const std::string category = std::make_error_code(std::io_errc::stream).message();
    EXPECT_EQ(std::string(exception.what()), "Pipe write timed out: " + category);
    const std::system_error& base = exception;
    EXPECT_EQ(base.code(), std::io_errc::stream);
    EXPECT_EQ(base.code().value(), 1);
}

TYPED_TEST(PipeExceptionFamily, IsCaughtAsItsFamilyAsAStreamFailureAndAsAnException) {
    EXPECT_THROW(throw TypeParam("text"), TypeParam);
    EXPECT_THROW(throw TypeParam("text"), CvPipeException);
    EXPECT_THROW(throw TypeParam("text"), std::ios_base::failure);
    EXPECT_THROW(throw TypeParam("text"), std::system_error);
    EXPECT_THROW(throw TypeParam("text"), std::exception);
}

TYPED_TEST(PipeExceptionFamily, ACopyKeepsEverything) {
    const TypeParam original("text", 7);
    TypeParam copy(original);
    EXPECT_EQ(copy.getMessage(), "text");
    EXPECT_EQ(copy.getCode(), 7);
    EXPECT_STREQ(copy.what(), original.what());
}

TYPED_TEST(PipeExceptionFamily, AssignmentReplacesEverything) {
    const TypeParam first("first", 1);
    TypeParam second("second", 2);
    second = first;
    EXPECT_EQ(second.getMessage(), "first");
    EXPECT_EQ(second.getCode(), 1);
    EXPECT_STREQ(second.what(), first.what());
}

TYPED_TEST(PipeExceptionFamily, KeepsAMessageOfAnyBytesWhole) {
    const std::string message("a\0b\n", 4);
    EXPECT_EQ(TypeParam(message).getMessage(), message);
}

TEST(PipeExceptions, SiblingsDoNotCatchEachOther) {
    EXPECT_FALSE((std::is_base_of<TimeoutException, InterruptedException>::value));
    EXPECT_FALSE((std::is_base_of<InterruptedException, TimeoutException>::value));
    EXPECT_FALSE((std::is_base_of<BrokenPipeException, ConnectException>::value));
    EXPECT_FALSE((std::is_base_of<BindException, ConnectException>::value));
}

TEST(IllegalStateException, KeepsMessageAndCode) {
    const IllegalStateException plain("not bound");
    EXPECT_EQ(plain.getMessage(), "not bound");
    EXPECT_EQ(plain.getCode(), 0);
    const IllegalStateException coded("not bound", 5);
    EXPECT_EQ(coded.getCode(), 5);
}

TEST(IllegalStateException, CopiesAndAssigns) {
    const IllegalStateException original("text", 7);
    const IllegalStateException copy(original);
    EXPECT_EQ(copy.getMessage(), "text");
    EXPECT_EQ(copy.getCode(), 7);
    IllegalStateException other("other");
    other = original;
    EXPECT_EQ(other.getMessage(), "text");
    EXPECT_EQ(other.getCode(), 7);
}

TEST(MisuseExceptions, StandOutsideTheStandardExceptions) {
    bool caught = false;
    try {
        throw IllegalStateException("text");
    } catch (const std::exception&) {
        ADD_FAILURE() << "a handler for std::exception caught it";
    } catch (const IllegalStateException&) {
        caught = true;
    }
    EXPECT_TRUE(caught);
    EXPECT_FALSE((std::is_base_of<std::exception, IllegalStateException>::value));
    EXPECT_FALSE((std::is_base_of<std::exception, IllegalArgumentException>::value));
    EXPECT_FALSE((std::is_base_of<IllegalStateException, IllegalArgumentException>::value));
    EXPECT_FALSE((std::is_base_of<IllegalArgumentException, IllegalStateException>::value));
}

TEST(MisuseExceptions, AreCopiedAssignedAndPolymorphic) {
    const IllegalArgumentException original("text", 7);
    IllegalArgumentException copy(original);
    copy = IllegalArgumentException("other");
    EXPECT_TRUE(std::has_virtual_destructor<IllegalArgumentException>::value);
    EXPECT_TRUE(std::has_virtual_destructor<IllegalStateException>::value);
    EXPECT_THROW(throw copy, IllegalArgumentException);
}

}  // namespace
}  // namespace Io
}  // namespace Corvane
