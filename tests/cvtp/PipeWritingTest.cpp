// A message that fits into the buffer of its pipe, and that nobody watches, is composed there. It must not make a
// difference: so each of these tests writes with and without somebody who watches, and with and without room.

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "cvtp/CvtpMessage.h"
#include "cvtp/internal/CvtpMessageOutImpl.h"
#include "cvtp/internal/StreamUtil.h"
#include "cvtp/internal/TraceTags.h"
#include "io/CvPipe.h"
#include "io/Exceptions.h"
#include "io/PipeBufferBase.h"
#include "io/ServerCvPipe.h"
#include "tests/cvtp/MessageSupport.h"
#include "tests/support_code/LogCapture.h"
#include "tests/support_code/TemporaryPipeDirectory.h"

namespace Corvane {
namespace Testing {
namespace {

using Cvtp::CvtpMessage;
using Internal::Cvtp::CvtpMessageOutImpl;
using Lines = std::vector<std::string>;

/// A pipe that is written to through a buffer of some size.
class PipeSink {
 public:
    explicit PipeSink(std::size_t size) : memory(new char[size + 1]), size(size) {
        memory[size] = GUARD;
        Io::ServerCvPipe server("sink", true, false);
        pipe.connect("sink", false, true);
        server.accept(reader);
        stream().rdbuf()->pubsetbuf(memory.get(), static_cast<std::streamsize>(size));
    }

    std::ostream& stream() { return *pipe.getOutputStream(); }
    std::streamsize room() { return Io::PipeBufferBase<char>::from(stream().rdbuf())->room(); }

    /// No one reads any more.
    void lose() { reader.close(); }

    /// All that has left. Nothing can be written after it.
    std::string received() {
        EXPECT_EQ(memory[size], GUARD) << "written behind the end of the buffer";
        pipe.close();
        std::string all;
        char block[1000];
        for (int count = 0; count >= 0; count = reader.readPipe(block, 0, sizeof block, 0)) {
            all.append(block, static_cast<std::size_t>(count));
        }
        return all;
    }

 private:
    static constexpr char GUARD = '#';

    std::unique_ptr<char[]> memory;
    const std::size_t size;
    Io::CvPipe pipe;
    Io::CvPipe reader;
};

void writeHeadAndBody(CvtpMessageOutImpl& message, PipeSink& sink) {
    const int writerSize = 100;
    const std::string startLine = message.getStartLine();
    message.writeHeadAndBody(sink.stream(), {startLine}, writerSize);
}

const std::string HEAD = "POST /a CVTP/1.0\r\nContent-Length: 5\r\nUser-Agent: Me\r\n\r\n";
const std::string BODY = "hello";

struct Watching {
    std::string name;
    int log;
    int trace;
};

void PrintTo(const Watching& watching, std::ostream* out) {
    *out << watching.name;
}

struct Place {
    /// How many bytes more than the message the buffer has room for.
    int spare;
    /// What stands in the buffer already.
    std::string held;
};

/// Much room, a message that fits exactly, one that is a byte too large, and the same behind other bytes; a body
/// that does not fit at all, and a head that does not.
const std::vector<Place> PLACES{{1000, ""}, {0, ""}, {-1, ""}, {0, "abc"}, {-1, "abc"}, {-5, ""}, {-20, "abc"}};

class PipeWriting : public testing::TestWithParam<Watching> {
 protected:
    /// Does it with a message of its own in each place.
    template <class Test>
    void inEachPlace(const Test& test) const {
        for (const Place& place : PLACES) {
            SCOPED_TRACE(std::to_string(place.spare) + " spare behind " + std::to_string(place.held.size()));
            CvtpMessageOutImpl message(&owner, Internal::Cvtp::TAG_SEND, nullptr);
            message.setProgram(CvtpMessage::HEADER_USER_AGENT, "Me");
            message.setBody(BODY.data(), BODY.size());
            test(message, place);
        }
    }

    static std::unique_ptr<PipeSink> sinkFor(const Place& place) {
        const auto size = static_cast<int>(place.held.size() + HEAD.size() + BODY.size()) + place.spare;
        auto sink = std::make_unique<PipeSink>(static_cast<std::size_t>(size));
        sink->stream() << place.held;
        return sink;
    }

    static void write(CvtpMessageOutImpl& message, PipeSink& sink) { writeHeadAndBody(message, sink); }

    const TemporaryPipeDirectory folder;
    mutable StartLineOwner owner;
};

TEST_P(PipeWriting, SendsHeadAndBodyBehindWhatWasThere) {
    inEachPlace([](CvtpMessageOutImpl& message, const Place& place) {
        const auto sink = sinkFor(place);
        const LogCapture capture(GetParam().log, GetParam().trace);
        write(message, *sink);
        EXPECT_TRUE(message.isCommitted());
        EXPECT_TRUE(sink->stream().good());
        Lines texts = capture.texts();
        for (std::string& text : texts) {
            // The rate behind it depends on the time.
            text = text.substr(0, text.find('('));
        }
        const Lines expected{"DEBUG: Send:    " + HEAD, "DEBUG: Wrote 5 bytes to the CvPipe "};
        EXPECT_EQ(texts, GetParam().log == 4 ? expected : Lines());
        const std::string record = LogCapture::prefix("OUTPUT") + "Send:    " + HEAD + BODY + "\n";
        EXPECT_EQ(capture.maskedTrace(), GetParam().trace >= 2 ? record : "");
        EXPECT_EQ(sink->received(), place.held + HEAD + BODY);
    });
}

TEST_P(PipeWriting, IsNotCommittedToALostPipeAndSendsAllOfItToAnother) {
    inEachPlace([](CvtpMessageOutImpl& message, const Place& place) {
        const auto lost = sinkFor(place);
        lost->lose();
        const LogCapture capture(GetParam().log, GetParam().trace);
        EXPECT_THROW(write(message, *lost), Io::BrokenPipeException);
        EXPECT_TRUE(lost->stream().bad());
        EXPECT_FALSE(message.isCommitted());
        EXPECT_EQ(capture.trace(), "");
        EXPECT_EQ(capture.log().find("Send:"), std::string::npos);
        const auto other = sinkFor(place);
        write(message, *other);
        EXPECT_TRUE(message.isCommitted());
        EXPECT_EQ(other->received(), place.held + HEAD + BODY);
    });
}

std::string failureOf(CvtpMessageOutImpl& message, PipeSink& sink) {
    try {
        writeHeadAndBody(message, sink);
        return "";
    } catch (Io::CvPipeException& exception) {
        return exception.getMessage();
    } catch (const Io::IllegalStateException& exception) {
        return exception.getMessage();
    }
}

TEST_P(PipeWriting, PutsNothingIntoAStreamThatHasFailed) {
    inEachPlace([](CvtpMessageOutImpl& message, const Place& place) {
        for (const std::ios_base::iostate state : {std::ios_base::failbit, std::ios_base::badbit}) {
            const auto sink = sinkFor(place);
            Internal::Cvtp::StreamUtil::setState(sink->stream(), state);
            const std::streamsize room = sink->room();
            const LogCapture capture(GetParam().log, GetParam().trace);
            EXPECT_EQ(failureOf(message, *sink), "Pipe write failed");
            EXPECT_FALSE(message.isCommitted());
            EXPECT_EQ(sink->room(), room);
            EXPECT_EQ(capture.trace(), "");
            EXPECT_EQ(sink->received(), "");
        }
    });
}

TEST_P(PipeWriting, PutsNothingIntoAStreamAtItsEnd) {
    inEachPlace([](CvtpMessageOutImpl& message, const Place& place) {
        const auto sink = sinkFor(place);
        sink->stream().setstate(std::ios_base::eofbit);
        const std::streamsize room = sink->room();
        failureOf(message, *sink);
        EXPECT_EQ(sink->room(), room);
        EXPECT_EQ(sink->received(), "");
    });
}

TEST_P(PipeWriting, RefusesALongHeaderLineBeforeAnythingIsWritten) {
    inEachPlace([](CvtpMessageOutImpl& message, const Place& place) {
        const std::string text = "The header X-A exceeded the 2048 byte limit.";
        message.addHeader("X-A", std::string(2049 - 7, 'v'));
        // The line itself finds room, or does not.
        const auto sink = sinkFor({place.spare + 2049, place.held});
        const std::streamsize room = sink->room();
        const LogCapture capture(GetParam().log, GetParam().trace);
        EXPECT_EQ(failureOf(message, *sink), text);
        EXPECT_FALSE(message.isCommitted());
        EXPECT_EQ(sink->room(), room);
        EXPECT_TRUE(sink->stream().good());
        EXPECT_EQ(capture.texts(), GetParam().log == 0 ? Lines() : Lines{"ERROR: " + text});
    });
}

INSTANTIATE_TEST_SUITE_P(Watched, PipeWriting,
                         testing::Values(Watching{"ByNobody", 0, 0}, Watching{"ByOthers", 3, 1},
                                         Watching{"ByTheLog", 4, 0}, Watching{"ByTheTrace", 0, 2},
                                         Watching{"ByBoth", 4, 3}),
                         [](const testing::TestParamInfo<Watching>& test) { return test.param.name; });

/// The headers that the library adds itself have the same limit.
TEST(LinesInAPipe, HaveTheirLimitAlsoWhenTheyNameTheProgram) {
    const TemporaryPipeDirectory folder;
    StartLineOwner owner;
    const std::size_t longest = 2048 - std::string("User-Agent: \r\n").size();
    for (const std::size_t size : {longest, longest + 1}) {
        PipeSink sink(4096);
        CvtpMessageOutImpl message(&owner, Internal::Cvtp::TAG_SEND, nullptr);
        message.setProgram(CvtpMessage::HEADER_USER_AGENT, std::string(size, 'v'));
        message.setBody("", 0);
        EXPECT_EQ(failureOf(message, sink),
                  size > longest ? "The header User-Agent exceeded the 2048 byte limit." : "");
        EXPECT_EQ(sink.received(), size > longest ? ""
                                                  : "POST /a CVTP/1.0\r\nContent-Length: 0\r\nUser-Agent: " +
                                                        std::string(size, 'v') + "\r\n\r\n");
    }
}

TEST(LinesInAPipe, EndNowhereElse) {
    const TemporaryPipeDirectory folder;
    StartLineOwner owner("POST /a CVTP/1.0");
    PipeSink sink(4096);
    CvtpMessageOutImpl message(&owner, Internal::Cvtp::TAG_SEND, nullptr);
    message.setProgram(CvtpMessage::HEADER_SERVER, std::string("A\r\n B\0C", 8));
    message.setBody("x\0\n", 3);
    writeHeadAndBody(message, sink);
    EXPECT_EQ(sink.received(), std::string("POST /a CVTP/1.0\r\nContent-Length: 3\r\nServer: A   B C\r\n\r\n") +
                                   std::string("x\0\n", 3));
}

TEST(LinesInAPipe, EndNowhereElseWhenAnOwnerGivesThem) {
    const TemporaryPipeDirectory folder;
    StartLineOwner owner(std::string("POST /a\r\nb\0c CVTP/1.0\n", 22));
    PipeSink sink(4096);
    CvtpMessageOutImpl message(&owner, Internal::Cvtp::TAG_SEND, nullptr);
    message.writeHeaders(sink.stream());
    EXPECT_EQ(sink.received(), "POST /a  b c CVTP/1.0 \r\n\r\n");
}

TEST(BodiesInAPipe, AreOfAnySizeAndReplaceOneAnother) {
    const TemporaryPipeDirectory folder;
    StartLineOwner owner;
    // Around the size that needs memory of its own.
    const std::vector<std::size_t> sizes{0, 1, 127, 128, 129, 1000};
    for (const std::size_t first : sizes) {
        for (const std::size_t second : sizes) {
            PipeSink sink(4096);
            CvtpMessageOutImpl message(&owner, Internal::Cvtp::TAG_SEND, nullptr);
            message.setBody(std::string(first, 'a').data(), first);
            message.setBody(std::string(second, 'b').data(), second);
            EXPECT_EQ(message.getBodyLength(), static_cast<std::int64_t>(second));
            writeHeadAndBody(message, sink);
            EXPECT_EQ(sink.received(), "POST /a CVTP/1.0\r\nContent-Length: " + std::to_string(first) + "," +
                                           std::to_string(second) + "\r\n\r\n" + std::string(second, 'b'));
        }
    }
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
