// Every message of the table is read in every way that its bytes may arrive in, and in every way that a body may be
// asked for.

#include <gtest/gtest.h>

#include <istream>
#include <iterator>
#include <memory>
#include <sstream>
#include <streambuf>
#include <string>
#include <vector>

#include "cvtp/internal/CvtpMessageInImpl.h"
#include "cvtp/internal/TraceTags.h"
#include "io/Exceptions.h"
#include "tests/cvtp/MessageSupport.h"
#include "tests/cvtp/MessageTable.h"
#include "tests/cvtp/PipeSource.h"
#include "tests/support_code/FeedBuffer.h"
#include "tests/support_code/LogCapture.h"

namespace Corvane {
namespace Testing {
namespace {

using Internal::Cvtp::CvtpMessageInImpl;

enum class BodyAs { BLOCK, STREAM, CHARACTERS };

/// Feeds bytes that live elsewhere in two pieces, each of which one refill brings. Copies nothing, so that a
/// message can be split at each of its positions in a short time.
class TwoPieces : public std::streambuf {
 public:
    TwoPieces(std::string& bytes, std::size_t split) : split(&bytes[split]), end(&bytes[0] + bytes.size()) {
        setg(&bytes[0], &bytes[0], &bytes[0]);
    }

 protected:
    int_type underflow() override {
        if (gptr() == egptr()) {
            setg(egptr(), egptr(), egptr() < split ? split : end);
        }
        return gptr() == egptr() ? traits_type::eof() : traits_type::to_int_type(*gptr());
    }

 private:
    char* split;
    char* end;
};

struct Reading {
    std::string startLine;
    Headers headers;
    std::string body;
    Ending ending = Ending::COMPLETE;
    bool complete = false;
};

std::string streamedBody(CvtpMessageInImpl& message, BodyAs way) {
    std::istream& stream = *message.getBodyStream();
    if (way == BodyAs::CHARACTERS) {
        return std::string(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
    }
    std::string body;
    char block[7];
    while (stream.good()) {
        stream.read(block, sizeof block);
        body.append(block, static_cast<std::size_t>(stream.gcount()));
    }
    EXPECT_TRUE(stream.eof());
    return body;
}

Ending endingOfHead(CvtpMessageInImpl& message) {
    try {
        message.getStartLine();
        return Ending::COMPLETE;
    } catch (const Io::InterruptedException&) {
        return Ending::HEAD_CUT;
    } catch (Io::CvPipeException& exception) {
        EXPECT_EQ(exception.getCode(), 1011);
        return Ending::NO_FRAMING;
    }
}

void readBody(CvtpMessageInImpl& message, BodyAs way, Reading& result) {
    if (way != BodyAs::BLOCK) {
        result.body = streamedBody(message, way);
        return;
    }
    try {
        result.body = bodyOf(message);
    } catch (Io::CvPipeException& exception) {
        EXPECT_EQ(exception.getMessage(), "Reached the stream end-of-file before the expected length.");
        result.ending = Ending::LENGTH_CUT;
    }
}

Reading readMessage(std::streambuf& source, BodyAs way, int bufferSize) {
    std::istream in(&source);
    in.exceptions(std::ios_base::badbit);
    CvtpMessageInImpl message(&in, Internal::Cvtp::TAG_ACCEPT, nullptr, bufferSize);
    Reading result;
    result.ending = endingOfHead(message);
    result.headers = headersOf(message);
    if (message.hasStartLine()) {
        result.startLine = message.getStartLine();
    }
    if (result.ending == Ending::COMPLETE) {
        readBody(message, way, result);
    }
    result.complete = message.isBodyComplete();
    return result;
}

void expectHead(const IncomingCase& expected, const Reading& actual) {
    EXPECT_EQ(actual.startLine, expected.startLine);
    EXPECT_EQ(actual.headers, expected.headers);
    EXPECT_EQ(actual.complete, expected.ending == Ending::COMPLETE);
}

/// A broken chunk is no exception: the body just ends early.
void expectBrokenBody(const IncomingCase& expected, const Reading& actual, bool wholeBlock) {
    EXPECT_EQ(actual.ending, Ending::COMPLETE);
    if (wholeBlock) {
        EXPECT_EQ(actual.body, expected.body);
    }
    EXPECT_EQ(expected.longestBody.compare(0, actual.body.size(), actual.body), 0) << actual.body;
}

void expectBody(const IncomingCase& expected, const Reading& actual, BodyAs way, bool whole) {
    if (expected.ending == Ending::CHUNKS_BROKEN) {
        expectBrokenBody(expected, actual, whole && way == BodyAs::BLOCK);
        return;
    }
    // A stream of a counted body that is cut off just ends, and gives what came.
    const bool justEnds = expected.ending == Ending::LENGTH_CUT && way != BodyAs::BLOCK;
    const bool hasBody = expected.ending == Ending::COMPLETE || justEnds;
    EXPECT_EQ(actual.ending, justEnds ? Ending::COMPLETE : expected.ending);
    EXPECT_EQ(actual.body, hasBody ? expected.body : "");
}

class Reader : public testing::TestWithParam<IncomingCase> {
 protected:
    /// Reads the message in each way, each time from a source of its own that `makeSource` gives.
    template <class MakeSource>
    void readInEachWay(const MakeSource& makeSource, bool whole) {
        for (const BodyAs way : {BodyAs::BLOCK, BodyAs::STREAM, BodyAs::CHARACTERS}) {
            for (const int bufferSize : {-1, 1, 3, 40960}) {
                auto source = makeSource();
                const Reading reading = readMessage(*source, way, bufferSize);
                expectHead(GetParam(), reading);
                expectBody(GetParam(), reading, way, whole);
                // Instead of a trace, which would have to be composed each time.
                ASSERT_FALSE(HasFailure()) << "buffer size " << bufferSize << ", way " << static_cast<int>(way);
            }
        }
    }
};

TEST_P(Reader, ReadsAMessageThatArrivesWhole) {
    const auto makeSource = [] {
        auto source = std::make_unique<FeedBuffer>();
        source->then(GetParam().bytes);
        return source;
    };
    readInEachWay(makeSource, true);
}

TEST_P(Reader, ReadsAMessageThatArrivesByteByByte) {
    const auto makeSource = [] {
        auto source = std::make_unique<FeedBuffer>();
        source->thenByteByByte(GetParam().bytes);
        return source;
    };
    readInEachWay(makeSource, false);
}

TEST_P(Reader, ReadsAMessageThatArrivesInTwoPiecesWhereverItIsSplit) {
    std::string bytes = GetParam().bytes;
    for (std::size_t split = 1; split < bytes.size(); ++split) {
        readInEachWay([&] { return std::make_unique<TwoPieces>(bytes, split); }, false);
        ASSERT_FALSE(HasFailure()) << "split at " << split;
    }
}

TEST_P(Reader, ReadsAMessageFromAPipeWithABufferOfAnySize) {
    const TemporaryPipeDirectory folder;
    for (const std::size_t size : {1U, 2U, 7U, 60U, 4096U}) {
        for (const BodyAs way : {BodyAs::BLOCK, BodyAs::STREAM, BodyAs::CHARACTERS}) {
            for (const int bufferSize : {1, 3, 40960}) {
                PipeSource source(GetParam().bytes, size);
                const Reading reading = readMessage(source.buffer(), way, bufferSize);
                expectHead(GetParam(), reading);
                expectBody(GetParam(), reading, way, false);
                ASSERT_FALSE(HasFailure()) << "sizes " << size << " and " << bufferSize;
            }
        }
    }
}

std::string traceOf(std::streambuf& source) {
    const LogCapture capture(0, 1);
    readMessage(source, BodyAs::BLOCK, 40960);
    return capture.maskedTrace();
}

TEST_P(Reader, TracesTheSameFromAPipe) {
    const TemporaryPipeDirectory folder;
    FeedBuffer source;
    source.then(GetParam().bytes);
    PipeSource pipe(GetParam().bytes, 4096);
    EXPECT_EQ(traceOf(pipe.buffer()), traceOf(source));
}

TEST_P(Reader, LogsWhatIsWrongOnce) {
    const LogCapture capture(2);
    FeedBuffer source;
    source.then(GetParam().bytes);
    readMessage(source, BodyAs::BLOCK, 40960);
    const std::vector<std::string> expected =
        GetParam().log.empty() ? std::vector<std::string>() : std::vector<std::string>{GetParam().log};
    EXPECT_EQ(capture.texts(), expected);
}

INSTANTIATE_TEST_SUITE_P(Messages, Reader, testing::ValuesIn(incomingMessages()),
                         [](const testing::TestParamInfo<IncomingCase>& test) { return test.param.name; });

/// Where the body begins.
std::size_t sizeOfHead(const std::string& bytes) {
    std::istringstream in(bytes);
    CvtpMessageInImpl message(&in, Internal::Cvtp::TAG_ACCEPT, nullptr, 1);
    message.getStartLine();
    return static_cast<std::size_t>(in.tellg());
}

/// Reads in blocks to the end, through any number of timeouts.
std::string readThroughTimeouts(std::istream& stream, const std::istream& pipe) {
    std::string read;
    char block[1000];
    while (!stream.eof()) {
        try {
            stream.read(block, sizeof block);
            read.append(block, static_cast<std::size_t>(stream.gcount()));
        } catch (const Io::TimeoutException&) {
            EXPECT_TRUE(pipe.good()) << "the pipe's stream must stay usable";
            stream.clear();
        }
    }
    return read;
}

/// The messages whose head is in order.
std::vector<IncomingCase> messagesWithBody() {
    std::vector<IncomingCase> result;
    for (const IncomingCase& message : incomingMessages()) {
        if (message.ending != Ending::HEAD_CUT && message.ending != Ending::NO_FRAMING) {
            result.push_back(message);
        }
    }
    return result;
}

class BodyReader : public testing::TestWithParam<IncomingCase> {};

TEST_P(BodyReader, ReadsABodyThroughTimeoutsBetweenItsBytes) {
    const std::string& bytes = GetParam().bytes;
    const std::size_t head = sizeOfHead(bytes);
    for (const int bufferSize : {1, 3, 40960}) {
        FeedBuffer source;
        source.then(bytes.substr(0, head));
        for (const char c : bytes.substr(head)) {
            source.thenTimeOut().then(std::string(1, c));
        }
        std::istream in(&source);
        in.exceptions(std::ios_base::badbit);
        CvtpMessageInImpl message(&in, Internal::Cvtp::TAG_ACCEPT, nullptr, bufferSize);
        const std::string body = readThroughTimeouts(*message.getBodyStream(), in);
        // Bytes that come one by one are never dropped with a wrong line end.
        EXPECT_EQ(body, GetParam().ending == Ending::CHUNKS_BROKEN ? GetParam().longestBody : GetParam().body);
        EXPECT_EQ(message.isBodyComplete(), GetParam().ending == Ending::COMPLETE);
    }
}

INSTANTIATE_TEST_SUITE_P(Messages, BodyReader, testing::ValuesIn(messagesWithBody()),
                         [](const testing::TestParamInfo<IncomingCase>& test) { return test.param.name; });

}  // namespace
}  // namespace Testing
}  // namespace Corvane
