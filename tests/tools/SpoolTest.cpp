#include "tools/cvtp/Spool.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

using Corvane::Tools::Spool;

namespace {

std::string contentOf(Spool& spool) {
    std::ostringstream out;
    spool.copyTo(out);
    return out.str();
}

}  // namespace

TEST(Spool, IsEmptyAndInMemoryAtFirst) {
    Spool spool;
    EXPECT_EQ(0u, spool.size());
    EXPECT_TRUE(spool.isInMemory());
    EXPECT_EQ("", contentOf(spool));
}

TEST(Spool, StaysInMemoryUpToItsLimit) {
    Spool spool(5);
    spool.append("12", 2);
    spool.append("345", 3);
    EXPECT_TRUE(spool.isInMemory());
    EXPECT_EQ("12345", spool.bytes());
    EXPECT_EQ("12345", contentOf(spool));
}

TEST(Spool, MovesAllBytesToAFileWhenOneMoreComes) {
    Spool spool(5);
    spool.append("12345", 5);
    spool.append("6", 1);
    spool.append("78", 2);
    EXPECT_FALSE(spool.isInMemory());
    EXPECT_EQ(8u, spool.size());
    EXPECT_EQ("12345678", contentOf(spool));
}

TEST(Spool, GivesItsBytesMoreThanOnce) {
    Spool spool(1);
    spool.append("abc", 3);
    EXPECT_EQ("abc", contentOf(spool));
    EXPECT_EQ("abc", contentOf(spool));
}

TEST(Spool, KeepsBytesOfAnyValueOverManyBlocks) {
    std::string bytes;
    for (int i = 0; i < 300000; ++i) {
        bytes.push_back(static_cast<char>(i % 251));
    }
    Spool spool(1000);
    spool.append(bytes.data(), 999);
    spool.append(bytes.data() + 999, bytes.size() - 999);
    EXPECT_FALSE(spool.isInMemory());
    EXPECT_EQ(bytes, contentOf(spool));
}
