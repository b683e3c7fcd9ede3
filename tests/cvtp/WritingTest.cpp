// Every message of the table is written, and what was written is read back.

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "cvtp/internal/CvtpMessageInImpl.h"
#include "cvtp/internal/CvtpMessageOutImpl.h"
#include "cvtp/internal/CvtpOStream.h"
#include "cvtp/internal/TraceTags.h"
#include "io/Exceptions.h"
#include "tests/cvtp/MessageSupport.h"
#include "tests/cvtp/MessageTable.h"

namespace Corvane {
namespace Testing {
namespace {

using Internal::Cvtp::CvtpMessageInImpl;
using Internal::Cvtp::CvtpMessageOutImpl;
using Internal::Cvtp::CvtpOStream;

class Writer : public testing::TestWithParam<OutgoingCase> {
 protected:
    Writer() : owner(GetParam().startLine), message(&owner, Internal::Cvtp::TAG_SEND, nullptr) {
        for (const OutgoingCase::HeaderCall& call : GetParam().headers) {
            if (call.kind == 'a') {
                message.addHeader(call.name, call.value);
            } else if (call.kind == 's') {
                message.setHeader(call.name, call.value);
            } else {
                message.removeHeader(call.name);
            }
        }
        if (!GetParam().chunked && !GetParam().blocks.empty()) {
            message.setBody(GetParam().blocks.front().data(), GetParam().blocks.front().size());
        }
    }

    void writeBlocks(std::ostream& body) {
        for (const std::string& block : GetParam().blocks) {
            body.write(block.data(), static_cast<std::streamsize>(block.size()));
        }
    }

    StartLineOwner owner;
    CvtpMessageOutImpl message;
    std::ostringstream out;
};

TEST_P(Writer, CommitsTheHeadThenWritesTheBody) {
    CvtpOStream body(GetParam().chunkSize, GetParam().chunked, out);
    message.writeHeaders(out);
    EXPECT_TRUE(message.isCommitted());
    GetParam().chunked ? writeBlocks(body) : message.writeBody(body);
    body.send();
    EXPECT_EQ(out.str(), GetParam().bytes);
}

TEST_P(Writer, CommitsTheHeadWithTheBody) {
    CvtpOStream body(GetParam().chunkSize, GetParam().chunked, out, &message);
    EXPECT_FALSE(message.isCommitted());
    GetParam().chunked ? writeBlocks(body) : message.writeBody(body);
    body.send();
    EXPECT_TRUE(message.isCommitted());
    EXPECT_EQ(out.str(), GetParam().bytes);
}

/// The messages that have a framing header.
std::vector<OutgoingCase> messagesWithBody() {
    std::vector<OutgoingCase> result;
    for (const OutgoingCase& message : outgoingMessages()) {
        if (message.chunked || !message.blocks.empty()) {
            result.push_back(message);
        }
    }
    return result;
}

class RoundTrip : public Writer {};

TEST_P(RoundTrip, WhatWasWrittenIsReadBack) {
    CvtpOStream body(GetParam().chunkSize, GetParam().chunked, out, &message);
    std::string expected;
    for (const std::string& block : GetParam().blocks) {
        expected += block;
    }
    GetParam().chunked ? writeBlocks(body) : message.writeBody(body);
    body.send();
    std::istringstream in(out.str());
    CvtpMessageInImpl read(&in, Internal::Cvtp::TAG_ACCEPT, nullptr, 16);
    EXPECT_EQ(read.getStartLine(), GetParam().startLine);
    EXPECT_EQ(bodyOf(read), expected);
    EXPECT_TRUE(read.isBodyComplete());
    EXPECT_EQ(in.peek(), std::istringstream::traits_type::eof()) << "every byte belongs to the message";
}

INSTANTIATE_TEST_SUITE_P(Messages, Writer, testing::ValuesIn(outgoingMessages()),
                         [](const testing::TestParamInfo<OutgoingCase>& test) { return test.param.name; });

INSTANTIATE_TEST_SUITE_P(Messages, RoundTrip, testing::ValuesIn(messagesWithBody()),
                         [](const testing::TestParamInfo<OutgoingCase>& test) { return test.param.name; });

}  // namespace
}  // namespace Testing
}  // namespace Corvane
