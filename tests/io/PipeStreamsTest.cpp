#include "io/PipeStreams.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>

#include "io/Exceptions.h"

using Corvane::Io::TimeoutException;
namespace PipeStreams = Corvane::Io::PipeStreams;

namespace {

class FailingBuffer : public std::streambuf {
 protected:
    int_type underflow() override { throw TimeoutException("nothing came"); }
};

}  // namespace

TEST(PipeStreams, LetAnExceptionOfTheBufferPass) {
    FailingBuffer buffer;
    std::istream* const stream = PipeStreams::takeInput(&buffer);
    EXPECT_THROW(stream->get(), TimeoutException);
    PipeStreams::keep(stream, true);
}

TEST(PipeStreams, KeepAStreamForTheNextPipe) {
    std::stringbuf first;
    std::istream* const input = PipeStreams::takeInput(&first);
    PipeStreams::keep(input, true);
    std::ostream* const output = PipeStreams::takeOutput(&first);
    PipeStreams::keep(output, true);
    std::stringbuf second("x");
    EXPECT_EQ(input, PipeStreams::takeInput(&second));
    EXPECT_EQ(output, PipeStreams::takeOutput(&second));
    EXPECT_EQ('x', input->get());
    PipeStreams::keep(input, true);
    PipeStreams::keep(output, true);
}

TEST(PipeStreams, KeptOnesFailWithoutTouchingTheirFormerBuffer) {
    std::ostream* stream = nullptr;
    {
        std::stringbuf buffer;
        stream = PipeStreams::takeOutput(&buffer);
        PipeStreams::keep(stream, true);
    }
    *stream << "nobody is there";
    EXPECT_TRUE(stream->bad());
}

TEST(PipeStreams, ForgetStateAndFormatOfTheFormerPipe) {
    std::stringbuf buffer;
    std::ostream* const stream = PipeStreams::takeOutput(&buffer);
    *stream << std::hex << std::setfill('*');
    stream->setstate(std::ios_base::failbit);
    PipeStreams::keep(stream, true);

    std::stringbuf fresh;
    ASSERT_EQ(stream, PipeStreams::takeOutput(&fresh));
    *stream << std::setw(4) << 255;
    EXPECT_EQ(" 255", fresh.str());
    EXPECT_EQ(std::ios_base::badbit, stream->exceptions());
    PipeStreams::keep(stream, true);
}

TEST(PipeStreams, IgnoreNull) {
    PipeStreams::keep(static_cast<std::istream*>(nullptr), false);
    PipeStreams::keep(static_cast<std::ostream*>(nullptr), false);
}
