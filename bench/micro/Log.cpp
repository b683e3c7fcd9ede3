// What a line of the log costs whose level is off.

#include <benchmark/benchmark.h>

#include <string>

#include "cvtp/internal/Logging.h"

namespace {

using namespace Corvane::Internal::Cvtp;

void askTheGate(benchmark::State& state) {
    const std::string name = "pipe";
    for (auto _ : state) {
        if (isDebug()) {
            logDebug("CvPipe " + name + " is open.");
        }
        benchmark::ClobberMemory();
    }
}
BENCHMARK(askTheGate);

void writeWithoutAsking(benchmark::State& state) {
    const std::string text = "CvPipe pipe is open.";
    for (auto _ : state) {
        logDebug(text);
    }
}
BENCHMARK(writeWithoutAsking);

void askForTheTrace(benchmark::State& state) {
    const std::string bytes(100, 'x');
    for (auto _ : state) {
        if (isInputTraced()) {
            traceInput(bytes, true);
        }
        benchmark::ClobberMemory();
    }
}
BENCHMARK(askForTheTrace);

}  // namespace
