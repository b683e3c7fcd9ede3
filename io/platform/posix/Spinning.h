#pragma once

#include <chrono>
#include <string>

/// An answer often comes sooner than a thread can be put to sleep and woken again. So a read that finds nothing may
/// try again for a moment first. Each thread learns by itself whether that pays: after a moment that was wasted it
/// leaves out the next reads, twice as many each time, and what it has learned outlives the connection.
///
/// There is none in a thread that may run on one processor only, where the other end could not run meanwhile; none
/// while the threads of the process that read, and as many at the other ends, are more than there are processors,
/// where it takes the place of one that has something to do; and none when the environment variable CVTP_SPIN_US is
/// 0. It gives the length of the moment in microseconds, at most 1000; 50 without it.
namespace Corvane {
namespace Io {
namespace Platform {
namespace Spinning {

/// Whether the calling thread shall try again for a moment in this read.
bool isDue();

/// Tells what came of it.
void note(bool found);

/// How long the moment is.
std::chrono::microseconds length();

/// The microseconds that a value of the variable means; none is "".
int lengthFrom(const std::string& text);

/// Another length, in microseconds, for tests; below zero goes back to that of the environment. To be called while
/// no thread reads. Also makes the calling thread forget what it has learned.
void setLength(int microseconds);

}  // namespace Spinning
}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
