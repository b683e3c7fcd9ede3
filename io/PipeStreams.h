#pragma once

#include <istream>
#include <ostream>
#include <streambuf>

namespace Corvane {
namespace Io {

class CvPipe;

/// The stream objects of all pipes. A stream that was handed out is never destroyed, since an application may still
/// hold it when its pipe is gone; it is kept for a later pipe, so there are never more of them than there were
/// pipes at once. Safe on several threads.
namespace PipeStreams {

/// A stream on `buffer`, with badbit in its exception mask.
std::istream* takeInput(std::streambuf* buffer);
std::ostream* takeOutput(std::streambuf* buffer);

/// Keeps a stream whose pipe goes away; until it is taken again it stands on no buffer, and using it fails. Null is
/// ignored.
///
/// @param wasLent whether an application had it, and may have changed its format.
void keep(std::istream* stream, bool wasLent);
void keep(std::ostream* stream, bool wasLent);

/// CvPipe::getInputStream() and getOutputStream() for the library's own use, which leaves the format of the streams
/// as it is: setting that back would be much of the cost of a short connection.
std::istream* inputOf(CvPipe& pipe);
std::ostream* outputOf(CvPipe& pipe);

/// Whole pages that hold nothing of value while reads of the pipe wait, until this is called again: they may be
/// full of zeros after any read. The buffers of the streams, for example, while both are empty. 0 as length means
/// none.
void setIdleMemory(CvPipe& pipe, char* memory, std::size_t length);

}  // namespace PipeStreams

}  // namespace Io
}  // namespace Corvane
