// What headers that could not be sorted for want of memory leave behind. It has a program of its own, which gives
// out its memory itself.

#include <gtest/gtest.h>

#include <new>
#include <string>
#include <vector>

#include "cvtp/CvtpMessage.h"
#include "cvtp/internal/HeadersToSend.h"
#include "cvtp/internal/ReceivedHeaders.h"
#include "tests/support_code/WatchedMemory.h"

namespace Corvane {
namespace Testing {
namespace {

using Cvtp::CvtpMessage;
using Internal::Cvtp::HeadersToSend;
using Internal::Cvtp::ReceivedHeaders;
using Lines = std::vector<std::string>;

/// So long that it needs a block of its own, of a size that nothing else has.
const std::string LONG_VALUE(999, 'v');

void haveNoMemoryForIt() {
    WatchedMemory::watch(LONG_VALUE.size(), 2 * LONG_VALUE.size(), [] { throw std::bad_alloc(); });
}

TEST(HeaderMemoryTest, HeadersToSendStayWhenAnotherCouldNotBeAdded) {
    HeadersToSend headers;
    headers.setProgram(CvtpMessage::HEADER_SERVER, LONG_VALUE);
    headers.addLength(5);
    haveNoMemoryForIt();
    EXPECT_THROW(headers.add("X-A", "1"), std::bad_alloc);
    EXPECT_FALSE(WatchedMemory::isWatching());
    headers.add("X-B", "2");
    Lines lines;
    headers.forEach([&lines](std::string_view name, std::string_view values) {
        lines.push_back(std::string(name) + ": " + std::string(values));
    });
    EXPECT_EQ(lines, (Lines{"Content-Length: 5", "Server: " + LONG_VALUE, "X-B: 2"}));
}

TEST(HeaderMemoryTest, ReceivedHeadersAreAllThereWhenTheyAreAskedForAgain) {
    ReceivedHeaders headers;
    headers.keep("A: 1\r\nB: " + LONG_VALUE + "\r\nC: 3\r\n");
    haveNoMemoryForIt();
    EXPECT_THROW(headers.all(), std::bad_alloc);
    EXPECT_FALSE(WatchedMemory::isWatching());
    EXPECT_EQ(headers.firstValue("C"), "3");
    EXPECT_EQ(headers.all().names(), (Lines{"A", "B", "C"}));
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
