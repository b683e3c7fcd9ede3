#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <streambuf>
#include <string>
#include <utility>

#include "io/Exceptions.h"

namespace Corvane {
namespace Testing {

/// Feeds a stream piece by piece, as a pipe does: each refill brings one piece, does something else that was asked
/// for (such as throwing a timeout), or finds the end.
class FeedBuffer : public std::streambuf {
 public:
    FeedBuffer() = default;

    FeedBuffer& then(const std::string& piece) {
        if (!piece.empty()) {
            steps.push_back({piece, nullptr});
        }
        return *this;
    }

    /// The next refill times out; the one after it goes on with the next step.
    FeedBuffer& thenTimeOut() {
        steps.push_back({std::string(), [] { throw Io::TimeoutException("Pipe read timed out"); }});
        return *this;
    }

    FeedBuffer& thenByteByByte(const std::string& bytes) {
        for (const char c : bytes) {
            then(std::string(1, c));
        }
        return *this;
    }

    /// How often the reader had to come for more.
    int refills() const { return refillCount; }

 protected:
    int_type underflow() override {
        if (gptr() == egptr()) {
            ++refillCount;
            if (steps.empty()) {
                return traits_type::eof();
            }
            const Step step = std::move(steps.front());
            steps.pop_front();
            if (step.action) {
                step.action();
            }
            current = step.piece;
            setg(&current[0], &current[0], &current[0] + current.size());
        }
        return traits_type::to_int_type(*gptr());
    }

 private:
    struct Step {
        std::string piece;
        std::function<void()> action;
    };

    std::deque<Step> steps;
    std::string current;
    int refillCount = 0;
};

}  // namespace Testing
}  // namespace Corvane
