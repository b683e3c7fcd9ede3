// A message that has arrived in the buffer of its pipe is taken from there by a short way. It must not make a
// difference: what is done with the messages of a pipe, and all that comes of it, is compared with what comes of
// the same bytes from a stream that knows no such way.

#include <gtest/gtest.h>

#include <algorithm>
#include <istream>
#include <memory>
#include <random>
#include <streambuf>
#include <string>
#include <utility>
#include <vector>

#include "cvtp/internal/CvtpMessageInImpl.h"
#include "cvtp/internal/TraceTags.h"
#include "io/Exceptions.h"
#include "tests/cvtp/MessageSupport.h"
#include "tests/cvtp/PipeSource.h"
#include "tests/support_code/LogCapture.h"

namespace Corvane {
namespace Testing {
namespace {

using Internal::Cvtp::CvtpMessageInImpl;
using Lines = std::vector<std::string>;

/// Bytes of which some have come, some come later, and then none.
struct Arrival {
    std::string now;
    std::string later;
    /// At most so many bytes are seen at once.
    std::size_t size;
};

/// Gives the bytes of an arrival as a pipe does, without being one.
class PlainSource : public std::streambuf {
 public:
    explicit PlainSource(Arrival arrival) : arrival(std::move(arrival)) {}

    void letTheRestCome() {
        arrival.now += arrival.later;
        hasEnded = true;
    }

 protected:
    int_type underflow() override {
        if (gptr() == egptr()) {
            if (arrival.now.empty()) {
                return atEnd();
            }
            current = arrival.now.substr(0, arrival.size);
            arrival.now.erase(0, current.size());
            setg(&current[0], &current[0], &current[0] + current.size());
        }
        return traits_type::to_int_type(*gptr());
    }

 private:
    int_type atEnd() const {
        if (!hasEnded) {
            throw Io::TimeoutException("Pipe read timed out");
        }
        return traits_type::eof();
    }

    Arrival arrival;
    std::string current;
    bool hasEnded = false;
};

/// Does with messages what a script says, and notes what comes of it.
class Player {
 public:
    explicit Player(std::istream& in) : in(in) { begin(); }

    /// One of the letters of perform(). @return what came of it.
    std::string play(char step) {
        std::string result;
        try {
            result = perform(step);
        } catch (const Io::TimeoutException&) {
            result = "timeout";
        } catch (const Io::InterruptedException&) {
            result = "interrupted";
        } catch (Io::CvPipeException& exception) {
            result = "failure " + std::to_string(exception.getCode());
        } catch (const std::ios_base::failure&) {
            result = "bad";
        }
        // What was done to the stream of the pipe counts too.
        return step + (" " + result) + (in.good() ? "" : " and the pipe's stream fails");
    }

 private:
    void begin() { message = std::make_unique<CvtpMessageInImpl>(&in, Internal::Cvtp::TAG_ACCEPT, nullptr, 3); }

    std::string perform(char step) {
        switch (step) {
            case 'n':
                begin();
                return "";
            case 'l':
                return message->getStartLine();
            case 'h':
                return headers();
            case 'b':
                return bodyOf(*message);
            case 'c':
                return message->isBodyComplete() ? "complete" : "incomplete";
            case 'm':
                message->getBodyStream()->clear();
                return "";
            case 'g':
                return characters(1);
            default:
                return characters(1000);
        }
    }

    std::string headers() const {
        std::string all = message->getHeader("content-length") + "|";
        for (const auto& header : headersOf(*message)) {
            all += header.first + "=" + std::to_string(header.second.size()) + " ";
        }
        return all;
    }

    std::string characters(int count) {
        std::istream& stream = *message->getBodyStream();
        std::string result = stream.good() ? "good " : "not good ";
        while (count > 0 && stream.peek() != std::istream::traits_type::eof()) {
            result += static_cast<char>(stream.get());
            --count;
        }
        return result + (stream.eof() ? " end" : "");
    }

    std::istream& in;
    std::unique_ptr<CvtpMessageInImpl> message;
};

struct Watching {
    int log;
    int trace;
};

/// What a pipe logs of itself, and no other stream does.
bool isOfThePipe(const std::string& text) {
    // The warning is what Windows says of the end of the bytes.
    return text == "DEBUG: Read timed out." || text.find("DEBUG: Close Handles: ") == 0 ||
           text == "WARN: ReadFile error: 109";
}

/// What came of a script: its steps, then the log, then the trace.
template <class LetTheRestCome>
Lines outcome(std::streambuf& source, const std::string& script, const Watching& watching,
              const LetTheRestCome& letTheRestCome) {
    const LogCapture capture(watching.log, watching.trace);
    std::istream in(&source);
    in.exceptions(std::ios_base::badbit);
    Player player(in);
    Lines lines;
    for (const char step : script) {
        if (step == 'w') {
            letTheRestCome();
        } else {
            lines.push_back(player.play(step));
        }
    }
    for (const std::string& text : capture.texts()) {
        if (!isOfThePipe(text)) {
            // The rate behind it depends on the time.
            lines.push_back(text.substr(0, text.find('(')));
        }
    }
    lines.push_back(capture.maskedTrace());
    return lines;
}

Lines outcomeFromPipe(const Arrival& arrival, const std::string& script, const Watching& watching) {
    PipeSource source(arrival.size);
    source.setTimeout(1);
    source.write(arrival.now);
    return outcome(source.buffer(), script, watching, [&] {
        source.write(arrival.later);
        source.end();
    });
}

Lines outcomeFromAnyOther(const Arrival& arrival, const std::string& script, const Watching& watching) {
    PlainSource source(arrival);
    return outcome(source, script, watching, [&] { source.letTheRestCome(); });
}

const std::vector<Watching> WATCHINGS{{0, 0}, {1, 2}, {4, 0}, {0, 1}, {4, 3}};

const std::string FIVE = "POST /a CVTP/1.0\r\nContent-Length: 5\r\n\r\nhello";
const std::string NEXT = "NOTIFY /b CVTP/1.0\r\nContent-Length: 2\r\n\r\nhi";

/// What a body that has arrived is asked for. All has come in time, but for the last byte in some.
struct Script {
    std::string steps;
    Lines results;
};

const std::vector<Script> SCRIPTS{
    {"bcscbmscnlbc",
     {"b hello", "c complete", "s good  end", "c complete", "b failure 0", "m ", "s good  end", "c complete", "n ",
      "l NOTIFY /b CVTP/1.0", "b hi", "c complete"}},
    {"bbsc", {"b hello", "b failure 0", "s not good  end", "c complete"}},
    {"lcscbnb",
     {"l POST /a CVTP/1.0", "c incomplete", "s good hello end", "c complete", "b failure 0", "n ", "b hi"}},
    {"gbcnb", {"g good h", "b failure 0", "c complete", "n ", "b hi"}},
    {"hlhb", {"h |", "l POST /a CVTP/1.0", "h 5|Content-Length=1 ", "b hello"}},
};

TEST(PipeReading, TakesABodyAheadAsItTakesAnyOther) {
    const TemporaryPipeDirectory folder;
    const std::string both = FIVE + NEXT;
    // Exactly this body, one byte less or more, all that there is, and small pieces.
    for (const std::size_t size : {FIVE.size(), FIVE.size() - 1, FIVE.size() + 1, both.size(), std::size_t{7}}) {
        for (const Script& script : SCRIPTS) {
            for (const Watching& watching : WATCHINGS) {
                const Arrival arrival{both, "", size};
                Lines results = outcomeFromPipe(arrival, script.steps, watching);
                EXPECT_EQ(results, outcomeFromAnyOther(arrival, script.steps, watching));
                results.resize(script.results.size());
                EXPECT_EQ(results, script.results) << "size " << size << ", level " << watching.log;
            }
        }
    }
}

TEST(PipeReading, ABodyOfNoBytesIsCompleteBeforeItIsAskedFor) {
    const TemporaryPipeDirectory folder;
    const Lines expected{"c incomplete", "l POST /a CVTP/1.0", "c complete", "b ",  "c complete",
                         "b ",           "s good  end",        "n ",         "b hi"};
    for (const char* const length : {"0", "-5", "none", "-99999999999999999999"}) {
        const std::string bytes = std::string("POST /a CVTP/1.0\r\nContent-Length: ") + length + "\r\n\r\n" + NEXT;
        for (const Watching& watching : WATCHINGS) {
            const Arrival arrival{bytes, "", bytes.size()};
            Lines results = outcomeFromPipe(arrival, "clcbcbsnb", watching);
            EXPECT_EQ(results, outcomeFromAnyOther(arrival, "clcbcbsnb", watching));
            results.resize(expected.size());
            EXPECT_EQ(results, expected) << "length " << length << ", level " << watching.log;
        }
    }
}

/// A stream that the exception of a body leaves behind.
TEST(PipeReading, WaitsForABodyOfWhichAByteIsMissingAsForAnyOther) {
    const TemporaryPipeDirectory folder;
    const Lines expected{"b timeout",        "c incomplete", "b failure 0", "s bad", "m ",
                         "s good hello end", "c complete",   "n ",          "b hi"};
    for (const std::size_t size : {FIVE.size() - 1, FIVE.size(), std::size_t{4096}}) {
        for (const Watching& watching : WATCHINGS) {
            const Arrival arrival{FIVE.substr(0, FIVE.size() - 1), "o" + NEXT, size};
            Lines results = outcomeFromPipe(arrival, "bcwbsmscnb", watching);
            EXPECT_EQ(results, outcomeFromAnyOther(arrival, "bcwbsmscnb", watching));
            results.resize(expected.size());
            EXPECT_EQ(results, expected) << "size " << size << ", level " << watching.log;
        }
    }
}

/// Lengths of all kinds, and heads without one.
std::string someMessage(std::mt19937& random) {
    static const Lines HEADERS{"Content-Length: 5\r\n",
                               "content-LENGTH : 5\n",
                               "Content-Length: ,5\r\nX-A: 1, 2\r\n",
                               "Content-Length: 5\r\nContent-Length: 7\r\n",
                               "Content-Length:\r\nContent-Length: +5x\r\n",
                               "X-A:\r\nContent-Length:\r\n 5\r\n",
                               "Content-Length: 0\r\n",
                               "Content-Length: -5\r\n",
                               "Content-Length: none\r\n",
                               "Content-Length: 5\rX\r\n",
                               "X-A\r\nContent-Length: 4\r\nTransfer-Encoding: chunked\r\n",
                               "Transfer-Encoding: chunked\r\n",
                               "X-A: 1\r\n",
                               "",
                               "Content-Length: 9223372036854775808\r\n",
                               "Content-Length: -99999999999999999999\r\n"};
    static const Lines BODIES{"", "hello", "hello", "hello", "hell", "5\r\nhello\r\n0\r\n\r\n", "\r\n"};
    return (random() % 9 == 0 ? "\r\n" : "") + std::string("POST /a CVTP/1.0\r\n") +
           HEADERS[random() % HEADERS.size()] + "\r\n" + BODIES[random() % BODIES.size()];
}

std::string someScript(std::mt19937& random) {
    std::string script;
    for (auto steps = 3 + random() % 8; steps > 0; --steps) {
        script += "bbbbssgchhlnnm"[random() % 14];
    }
    script.insert(random() % script.size(), "w");
    return script;
}

TEST(PipeReading, MakesNoDifferenceToAnything) {
    const TemporaryPipeDirectory folder;
    std::mt19937 random(11);
    for (int round = 0; round < 600 && !testing::Test::HasFailure(); ++round) {
        const std::string bytes = someMessage(random) + someMessage(random) + someMessage(random);
        const std::size_t split = random() % 3 == 0 ? random() % bytes.size() : bytes.size();
        const Arrival arrival{bytes.substr(0, split), bytes.substr(split), 1 + random() % (bytes.size() + 1)};
        const std::string script = someScript(random);
        const Watching& watching = WATCHINGS[random() % 2 * (random() % WATCHINGS.size())];
        EXPECT_EQ(outcomeFromPipe(arrival, script, watching), outcomeFromAnyOther(arrival, script, watching))
            << "round " << round << ", size " << arrival.size << ", script " << script << ", now:\n"
            << arrival.now << "\nlater:\n"
            << arrival.later;
    }
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
