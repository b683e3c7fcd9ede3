#include "tests/cvtp/MessageTable.h"

namespace Corvane {
namespace Testing {

namespace {

using Call = OutgoingCase::HeaderCall;
using Calls = std::vector<Call>;

const std::string START = "POST /a CVTP/1.0";
const Call CHUNKED = {'s', "Transfer-Encoding", "chunked"};
const std::string CHUNKED_HEAD = START + "\r\nTransfer-Encoding: chunked\r\n\r\n";

/// A message with these header calls and no body.
OutgoingCase withHeaders(const std::string& name, const Calls& calls, const std::string& headerLines) {
    return {name, START, calls, false, {}, 100, START + "\r\n" + headerLines + "\r\n"};
}

OutgoingCase withBody(const std::string& name, const std::string& startLine, const std::string& body) {
    return {name,
            startLine,
            {},
            false,
            {body},
            100,
            startLine + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body};
}

OutgoingCase inChunks(const std::string& name, int chunkSize, const std::vector<std::string>& blocks,
                      const std::string& chunks) {
    return {name, START, {CHUNKED}, true, blocks, chunkSize, CHUNKED_HEAD + chunks};
}

}  // namespace

const std::vector<OutgoingCase>& outgoingMessages() {
    static const std::vector<OutgoingCase> all = {
        withHeaders("NoHeaders", {}, ""),
        withHeaders("HeadersInTheOrderOfTheirNames", {{'a', "X-b", "1"}, {'a', "A", "2"}}, "A: 2\r\nX-b: 1\r\n"),
        withHeaders("NamesOrderWithoutRegardToCase", {{'a', "b", "1"}, {'a', "A", "2"}, {'a', "c", "3"}},
                    "A: 2\r\nb: 1\r\nc: 3\r\n"),
        withHeaders("HeaderAddedTwice", {{'a', "X-A", "1"}, {'a', "x-a", "2"}}, "X-A: 1,2\r\n"),
        withHeaders("HeaderSetAfterAdd", {{'a', "X-A", "1"}, {'s', "x-a", "2"}}, "x-a: 2\r\n"),
        withHeaders("HeaderRemoved", {{'a', "X-A", "1"}, {'a', "X-B", "2"}, {'r', " x-a ", ""}}, "X-B: 2\r\n"),
        withHeaders("ValuesLoseTheirBlanks", {{'a', " X-A ", " a , b,,\tc "}}, "X-A: a,b,c\r\n"),
        withHeaders("HeaderWithoutValue", {{'a', "X-A", " , "}}, "X-A: \r\n"),
        withHeaders("BytesOfValuesGoOutAsTheyAre", {{'a', "X-A", "%0d%41\xC3\xB6\x01"}},
                    "X-A: %0d%41\xC3\xB6\x01\r\n"),
        withHeaders("LineEndsInAValueBecomeBlanks", {{'a', "X-A", "a\r\nX-B: b\nc"}, {'s', "X-C", "a\nb"}},
                    "X-A: a  X-B: b c\r\nX-C: a b\r\n"),
        withHeaders("NulInAValueBecomesABlank", {{'a', "X-A", std::string("a\0b", 3)}}, "X-A: a b\r\n"),
        withHeaders("LineEndsAtTheEndsOfAValueAreTrimmed", {{'a', "X-A", std::string("\0\r\na\r\n\0", 7)}},
                    "X-A: a\r\n"),
        withHeaders("LineEndsInANameBecomeBlanks",
                    {{'a', "X-A\r\nX-B", "1"},
                     {'s', "X-C\nX-D", "2"},
                     {'a', "X-E\r", "3"},
                     {'r', "X-E\n", ""},
                     {'a', "X-F\nX-G", "4"},
                     {'r', "X-F\rX-G", ""}},
                    "X-A  X-B: 1\r\nX-C X-D: 2\r\n"),
        withBody("CountedBody", START, "hello"),
        withBody("OneWayRequest", "NOTIFY /a CVTP/1.0", "hello"),
        withBody("EmptyBody", START, ""),
        withBody("BodyOfAnyBytes", START, std::string("\0\r\n\r\n\xFF", 6)),
        withBody("ReasonWithTrailingBlank", "CVTP/1.0 414 Resource-ID Too Long ", "hello"),
        {"LineEndsInTheStartLineBecomeBlanks",
         std::string("CVTP/1.0 200 a\r\nb\0", 18),
         {},
         false,
         {},
         100,
         "CVTP/1.0 200 a  b \r\n\r\n"},
        inChunks("NoChunk", 100, {}, "0\r\n\r\n"),
        inChunks("OneChunk", 100, {"hello"}, "5\r\nhello\r\n0\r\n\r\n"),
        inChunks("BlocksShareAChunk", 100, {"hel", "", "lo"}, "5\r\nhello\r\n0\r\n\r\n"),
        inChunks("ChunksOfTheBufferSize", 4, {"hello world"}, "4\r\nhell\r\n4\r\no wo\r\n3\r\nrld\r\n0\r\n\r\n"),
        inChunks("BodyThatFillsItsChunks", 4, {"hell", "o wo"}, "4\r\nhell\r\n4\r\no wo\r\n0\r\n\r\n"),
        inChunks("SizesAreHexadecimal", 26, {"abcdefghijklmnopqrstuvwxyz"},
                 "1a\r\nabcdefghijklmnopqrstuvwxyz\r\n0\r\n\r\n"),
        inChunks("BufferSizeBelowOne", 0, {"ab"}, "1\r\na\r\n1\r\nb\r\n0\r\n\r\n"),
    };
    return all;
}

}  // namespace Testing
}  // namespace Corvane
