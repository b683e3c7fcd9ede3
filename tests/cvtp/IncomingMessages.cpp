#include "tests/cvtp/MessageTable.h"

namespace Corvane {
namespace Testing {

namespace {

const std::string BAD_END = "ERROR: Bad end of chunk";
const std::string BAD_SIZE = "ERROR: InputBuffer::read(): invalid chunksize line";
const std::string NO_FRAMING = "ERROR: The CVTP Message does not have a Content-Length or Transfer-Encoding header";
const std::string SHORT = "WARN: Reached the stream end-of-file before the expected length.";

const std::string START = "POST /a CVTP/1.0";
const Headers CHUNKED = {{"Transfer-Encoding", {"chunked"}}};
const std::string CHUNKED_HEAD = START + "\r\nTransfer-Encoding: chunked\r\n\r\n";

/// A complete message with a counted body.
IncomingCase counted(const std::string& name, const std::string& headerLines, const Headers& headers,
                     const std::string& body) {
    return {name, START + "\r\n" + headerLines + "\r\n" + body, START, headers, body, Ending::COMPLETE, "", ""};
}

/// A message with the headers given and no body.
IncomingCase withHeaders(const std::string& name, const std::string& headerLines, Headers headers) {
    Headers all = {{"Content-Length", {"0"}}};
    all.insert(all.end(), headers.begin(), headers.end());
    return counted(name, headerLines + "Content-Length: 0\r\n", all, "");
}

IncomingCase chunks(const std::string& name, const std::string& bytes, const std::string& body) {
    return {name, CHUNKED_HEAD + bytes, START, CHUNKED, body, Ending::COMPLETE, "", ""};
}

IncomingCase brokenChunks(const std::string& name, const std::string& bytes, const std::string& body,
                          const std::string& longestBody, const std::string& log) {
    return {name, CHUNKED_HEAD + bytes, START, CHUNKED, body, Ending::CHUNKS_BROKEN, log, longestBody};
}

IncomingCase cutHead(const std::string& name, const std::string& bytes, const std::string& startLine,
                     const Headers& headers) {
    return {name, bytes, startLine, headers, "", Ending::HEAD_CUT, "", ""};
}

IncomingCase withoutFraming(const std::string& name, const std::string& headerLines, const Headers& headers) {
    return {name, START + "\r\n" + headerLines + "\r\n", START, headers, "", Ending::NO_FRAMING, NO_FRAMING, ""};
}

IncomingCase cutLength(const std::string& name, const std::string& length, const std::string& body) {
    return {name,  START + "\r\nContent-Length: " + length + "\r\n\r\n" + body,
            START, {{"Content-Length", {length}}},
            body,  Ending::LENGTH_CUT,
            SHORT, body};
}

using List = std::vector<IncomingCase>;

void append(List& all, const List& more) {
    all.insert(all.end(), more.begin(), more.end());
}

List startLines() {
    const Headers five = {{"Content-Length", {"5"}}};
    const std::string longest = "POST /" + std::string(2046 - 15, 'x') + " CVTP/1.0";
    return {
        {"Request", "POST /a CVTP/1.0\r\nContent-Length: 5\r\n\r\nhello", START, five, "hello"},
        {"OneWayRequest", "NOTIFY /a%20b CVTP/1.0\r\nContent-Length: 5\r\n\r\nhello", "NOTIFY /a%20b CVTP/1.0",
         five, "hello"},
        {"Response", "CVTP/1.0 200 OK\r\nContent-Length: 5\r\n\r\nhello", "CVTP/1.0 200 OK", five, "hello"},
        {"ReasonWithTrailingBlank", "CVTP/1.0 414 Resource-ID Too Long \r\nContent-Length: 5\r\n\r\nhello",
         "CVTP/1.0 414 Resource-ID Too Long ", five, "hello"},
        {"BareLineFeeds", "POST /a CVTP/1.0\nContent-Length: 5\n\nhello", START, five, "hello"},
        {"BlankLinesBeforeTheStartLine", "\r\n\n\r\nPOST /a CVTP/1.0\r\nContent-Length: 5\r\n\r\nhello", START,
         five, "hello"},
        {"CarriageReturnInsideTheStartLine", "a\rb\r\r\nContent-Length: 5\r\n\r\nhello", "a\rb\r", five, "hello"},
        {"StartLineOfTheLargestSize", longest + "\r\nContent-Length: 5\r\n\r\nhello", longest, five, "hello"},
        {"BytesBehindTheBodyStay", "POST /a CVTP/1.0\r\nContent-Length: 5\r\n\r\nhelloNOTIFY", START, five,
         "hello"},
        {"FirstHeaderLineBeginsWithABlank", "POST /a CVTP/1.0\r\n Content-Length: 5\r\n\r\nhello", START, five,
         "hello"},
    };
}

List headerLines() {
    return {
        counted("HeadersAreListedByUpperCasedName", "b: 1\r\nContent-Length: 0\r\nA: 2\r\nc: 3\r\n",
                {{"A", {"2"}}, {"b", {"1"}}, {"c", {"3"}}, {"Content-Length", {"0"}}}, ""),
        counted("HeaderWithEmptyName", "Content-Length: 0\r\n: 1\r\n", {{"", {"1"}}, {"Content-Length", {"0"}}},
                ""),
        withHeaders("HeaderWithoutColon", "X-Flag\r\n", {{"X-Flag", {}}}),
        withHeaders("HeaderWithEmptyValue", "X-Empty:\r\n", {{"X-Empty", {}}}),
        withHeaders("BlanksAroundNameAndValue", "  X-A \t: \t v w\t \r\n", {{"X-A", {"v w"}}}),
        withHeaders("OtherWhiteSpaceStaysInTheValue", "X-A: \va\f\r\n", {{"X-A", {"\va\f"}}}),
        withHeaders("ColonsInTheValue", "X-A:b:c: d\r\n", {{"X-A", {"b:c: d"}}}),
        withHeaders("CommasSplitValues", "X-A: a, b,,c ,\r\n", {{"X-A", {"a", "b", "c"}}}),
        withHeaders("RepeatedHeadersMerge", "X-A: 1\r\nX-B: 2\r\nx-a: 3\r\n",
                    {{"X-A", {"1", "3"}}, {"X-B", {"2"}}}),
        withHeaders("ContinuationWithATab", "X-A: one\r\n\ttwo\r\n", {{"X-A", {"one two"}}}),
        withHeaders("ContinuationOfManyLines", "X-A: one\r\n   two  \r\n\t \tthree\n",
                    {{"X-A", {"one two three"}}}),
        withHeaders("BlanksAroundAContinuation", "X-A: one \t \r\n \t two \t\r\n", {{"X-A", {"one two"}}}),
        withHeaders("ContinuationOfAnEmptyValue", "X-A:\r\n one\r\n", {{"X-A", {"one"}}}),
        withHeaders("ContinuationOfAHeaderWithoutColon", "X-A\r\n b: c\r\n", {{"X-A", {"b: c"}}}),
        withHeaders("ContinuationMayAddValues", "X-A: 1,\r\n 2\r\n", {{"X-A", {"1", "2"}}}),
        withHeaders("EscapesInValuesAreLeftAlone", "X-A: %41%0d%0a\r\n", {{"X-A", {"%41%0d%0a"}}}),
        withHeaders("CarriageReturnInsideAValue", "X-A: a\rb\r\n", {{"X-A", {"a\rb"}}}),
    };
}

List lengths() {
    const std::string binary(
        "\0\r\n\r\n\xFF"
        "0\r\n",
        9);
    return {
        counted("EmptyBody", "Content-Length: 0\r\n", {{"Content-Length", {"0"}}}, ""),
        counted("BodyOfAnyBytes", "Content-Length: 9\r\n", {{"Content-Length", {"9"}}}, binary),
        counted("LengthBeatsChunked", "Transfer-Encoding: chunked\r\nContent-Length: 5\r\n",
                {{"Content-Length", {"5"}}, {"Transfer-Encoding", {"chunked"}}}, "hello"),
        counted("FirstOfTwoLengths", "Content-Length: 5\r\nContent-Length: 7\r\n", {{"Content-Length", {"5", "7"}}},
                "hello"),
        counted("NameOfAnyCase", "CONTENT-length: 5\r\n", {{"CONTENT-length", {"5"}}}, "hello"),
        counted("DecimalPrefixCounts", "Content-Length: 5 bytes\r\n", {{"Content-Length", {"5 bytes"}}}, "hello"),
        counted("LengthWithSign", "Content-Length: +5\r\n", {{"Content-Length", {"+5"}}}, "hello"),
        counted("LengthWithZeros", "Content-Length: 0005\r\n", {{"Content-Length", {"0005"}}}, "hello"),
        counted("GarbageIsZero", "Content-Length: five\r\n", {{"Content-Length", {"five"}}}, ""),
        counted("HexadecimalIsZero", "Content-Length: 0x5\r\n", {{"Content-Length", {"0x5"}}}, ""),
        counted("NegativeIsEmpty", "Content-Length: -5\r\n", {{"Content-Length", {"-5"}}}, ""),
        counted("MostNegativeIsEmpty", "Content-Length: -99999999999999999999999\r\n",
                {{"Content-Length", {"-99999999999999999999999"}}}, ""),
    };
}

List chunkedBodies() {
    return {
        chunks("OneChunk", "5\r\nhello\r\n0\r\n\r\n", "hello"),
        chunks("NoChunk", "0\r\n\r\n", ""),
        chunks("ManyChunks", "1\r\na\r\n2\r\nbc\r\n3\r\ndef\r\n0\r\n\r\n", "abcdef"),
        chunks("SizesInBothCases", "A\r\n0123456789\r\nb\r\n0123456789a\r\n10\r\n0123456789abcdef\r\n0\r\n\r\n",
               "01234567890123456789a0123456789abcdef"),
        chunks("SizeLineEndedByABareLineFeed", "5\nhello\r\n0\n\r\n", "hello"),
        chunks("SizeWithExtension", "5;name=value\r\nhello\r\n0;a\r\n\r\n", "hello"),
        chunks("SizeWithBlanksAndPrefix", " \t0x5\r\nhello\r\n0X0\r\n\r\n", "hello"),
        chunks("SizeLineOfNineteenCharacters", "000000000000000005\r\nhello\r\n0000000000000000000\n\r\n", "hello"),
        chunks("ChunkOfLineEnds", "4\r\n\r\n\r\n\r\n0\r\n\r\n", "\r\n\r\n"),
        chunks("SizeThatDoesNotScanEndsTheBody", "5\r\nhello\r\nxyz\r\n\r\n", "hello"),
        chunks("SizeWithASignEndsTheBody", "-5\r\n\r\n", ""),
        chunks("EmptySizeLineEndsTheBody", "\r\n\r\n", ""),
        chunks("BytesBehindTheLastChunkStay", "5\r\nhello\r\n0\r\n\r\nPOST", "hello"),
    };
}

List brokenHeads() {
    // Each is by one character longer than a line may be, and no longer: tests split messages at every position.
    const std::string longLine = "POST /" + std::string(2047 - 15, 'x') + " CVTP/1.0";
    const std::string longHeader = "X-A: " + std::string(2048 - 5, 'x');
    return {
        cutHead("Nothing", "", "", {}),
        cutHead("OnlyBlankLines", "\r\n\r\n", "", {}),
        cutHead("CutInTheStartLine", "POST /a CVTP/1.0", "", {}),
        cutHead("CutBehindTheStartLine", "POST /a CVTP/1.0\r\n", START, {}),
        cutHead("CutInAHeader", "POST /a CVTP/1.0\r\nX-A: 1\r\nX-B", START, {}),
        // The header before it could have been continued.
        cutHead("CutBehindTheHeaders", "POST /a CVTP/1.0\r\nX-A: 1\r\nContent-Length: 0\r\n", START,
                {{"X-A", {"1"}}}),
        cutHead("StartLineTooLong", longLine + "\r\nContent-Length: 0\r\n\r\n", "", {}),
        cutHead("HeaderTooLong", "POST /a CVTP/1.0\r\n" + longHeader + "\n\r\n", START, {}),
        withoutFraming("NoHeaders", "", {}),
        withoutFraming("NoFramingHeader", "X-A: 1\r\n", {{"X-A", {"1"}}}),
        withoutFraming("EmptyLength", "Content-Length: \r\n", {{"Content-Length", {}}}),
        withoutFraming("ChunkedWithACapital", "Transfer-Encoding: Chunked\r\n",
                       {{"Transfer-Encoding", {"Chunked"}}}),
        withoutFraming("ChunkedSecond", "Transfer-Encoding: identity, chunked\r\n",
                       {{"Transfer-Encoding", {"identity", "chunked"}}}),
    };
}

List brokenBodies() {
    return {
        cutLength("LengthWithoutBody", "5", ""),
        cutLength("BodyShorterThanLength", "5", "hell"),
        {"BodyShorterThanLengthInSpiteOfChunked",
         START + "\r\nContent-Length: 5\r\nTransfer-Encoding: chunked\r\n\r\nhell",
         START,
         {{"Content-Length", {"5"}}, {"Transfer-Encoding", {"chunked"}}},
         "hell",
         Ending::LENGTH_CUT,
         SHORT,
         "hell"},
        cutLength("LengthOfThreeGibibytes", "3221225472", "hello"),
        cutLength("LargestLength", "9223372036854775807", "hello"),
        cutLength("LengthThatOverflows", "99999999999999999999999999", "hello"),
        brokenChunks("NoSizeLine", "", "", "", BAD_SIZE),
        brokenChunks("CutInASizeLine", "5", "", "", BAD_SIZE),
        brokenChunks("CutInAChunk", "5\r\nhell", "hell", "hell", ""),
        brokenChunks("CutBehindAChunk", "5\r\nhello", "hello", "hello", BAD_END),
        brokenChunks("CutInTheLineEndOfAChunk", "5\r\nhello\r", "hello", "hello", BAD_END),
        brokenChunks("CutBetweenChunks", "5\r\nhello\r\n", "hello", "hello", BAD_SIZE),
        brokenChunks("CutInTheLastChunk", "5\r\nhello\r\n0\r\n\r", "hello", "hello", BAD_END),
        // The bytes read together with a wrong line end are dropped with it, on purpose.
        brokenChunks("ChunkWithoutLineEnd", "5\r\nhelloXX", "", "hello", BAD_END),
        brokenChunks("SecondChunkWithoutLineEnd", "5\r\nhello\r\n5\r\nworldXX", "hello", "helloworld", BAD_END),
        brokenChunks("ChunkEndedByABareLineFeed", "5\r\nhello\n0\r\n\r\n", "", "hello", BAD_END),
        brokenChunks("ChunkLongerThanItsSize", "4\r\nhello\r\n0\r\n\r\n", "", "hell", BAD_END),
        brokenChunks("SizeLineOfTwentyCharacters", "00000000000000000005\nhello\r\n0\r\n\r\n", "", "", BAD_SIZE),
        brokenChunks("SizeLineOfTwentyCharactersWithItsReturn", "0000000000000000005\r\nhello\r\n0\r\n\r\n", "", "",
                     BAD_SIZE),
        brokenChunks("SizeLineWithoutEnd", std::string(40, '1'), "", "", BAD_SIZE),
        brokenChunks("TrailerBehindTheLastChunk", "5\r\nhello\r\n0\r\nX-A: 1\r\n\r\n", "hello", "hello", BAD_END),
        brokenChunks("LargestChunk", "ffffffffffffffff\r\nhello", "hello", "hello", ""),
        brokenChunks("ChunkSizeThatOverflows", "1000000000000000f\r\nhello", "hello", "hello", ""),
    };
}

List allMessages() {
    List all;
    append(all, startLines());
    append(all, headerLines());
    append(all, lengths());
    append(all, chunkedBodies());
    append(all, brokenHeads());
    append(all, brokenBodies());
    return all;
}

}  // namespace

const std::vector<IncomingCase>& incomingMessages() {
    static const List all = allMessages();
    return all;
}

}  // namespace Testing
}  // namespace Corvane
