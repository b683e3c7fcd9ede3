#include "cvtp/internal/CVTP_OBufferWriter.h"

#include "cvtp/internal/LogAndThrow.h"
#include "cvtp/internal/Logging.h"
#include "cvtp/internal/StreamUtil.h"
#include "cvtp/internal/TransferSummary.h"
#include "io/Exceptions.h"
#include "io/PipeBufferBase.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

CVTP_OBufferWriter::PipeWriter::PipeWriter(std::ostream& stream, int bufferSize, bool chunked)
    : OBufferWriter(stream, bufferSize, chunked), stream(stream) {}

/// A stream that has failed, or a pipe without a buffer, is left to the stream.
void CVTP_OBufferWriter::PipeWriter::writeBlocks(const Block* begin, const Block* end) {
    auto* const pipe = stream.good() ? Io::PipeBufferBase<char>::from(stream.rdbuf()) : nullptr;
    if (pipe == nullptr || pipe->capacity() == 0) {
        OBufferWriter::writeBlocks(begin, end);
        return;
    }
    try {
        pipe->putBlocks(begin, end);
    } catch (...) {
        StreamUtil::setState(stream, std::ios::badbit);
        throw;
    }
}

CVTP_OBufferWriter::CVTP_OBufferWriter(int bufferSize, bool chunked, std::ostream& stream,
                                       CvtpHeaderWriter* headerWriter)
    : inner(stream, bufferSize, chunked),
      stream(stream),
      headerWriter(headerWriter),
      trace(isOutputTraced() ? std::make_unique<std::ostringstream>() : nullptr) {}

// What is unfinished stays so: a last chunk written here would make a body that was cut off look whole.
CVTP_OBufferWriter::~CVTP_OBufferWriter() = default;

void CVTP_OBufferWriter::write(const char* data, std::size_t length) {
    if (sent) {
        // Spelling and double blank are deliberate: operators search for this text.
        logAndThrow<Io::CvPipeException>("Atempt to write to the CvPipe  after the message has been sent.");
    }
    start();
    if (trace) {
        trace->write(data, static_cast<std::streamsize>(length));
    }
    bytesWritten += length;
    StreamUtil::requireWritable(stream);
    inner.write(data, length);
    StreamUtil::requireWritable(stream);
}

void CVTP_OBufferWriter::flush() {
    if (sent) {
        // The pipe may serve another message by now.
        return;
    }
    StreamUtil::requireWritable(stream);
    inner.flush();
    StreamUtil::requireWritable(stream);
}

void CVTP_OBufferWriter::close() {
    if (sent) {
        return;
    }
    start();
    flush();
    report();
    inner.close();
    StreamUtil::requireWritable(stream);
    sent = true;
}

void CVTP_OBufferWriter::seal() {
    sent = true;
}

void CVTP_OBufferWriter::start() {
    if (started) {
        return;
    }
    if (headerWriter != nullptr) {
        headerWriter->writeHeaders(stream);
    }
    started = true;
    if (isDebug()) {
        startTime = currentMilliseconds();
    }
}

void CVTP_OBufferWriter::report() {
    if (isDebug()) {
        logDebug(writeSummary(bytesWritten, elapsedSince(startTime)));
    }
    if (trace) {
        traceOutput(trace->str() + "\n", false);
        trace.reset();
    }
}

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
