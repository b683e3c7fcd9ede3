// Decoding a chunked body of 1 MiB, by the size of its chunks.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "cvtp/CvtpClient.h"
#include "cvtp/CvtpResponse.h"
#include "micro/Support.h"

namespace {

using namespace Corvane::Cvtp;

constexpr std::size_t TOTAL = std::size_t{1} << 20;

std::string chunkedMessage(std::size_t chunkSize) {
    std::string message = "CVTP/1.0 200 OK\r\nServer: CvtpServer\r\nTransfer-Encoding: chunked\r\n\r\n";
    for (std::size_t sent = 0; sent < TOTAL; sent += chunkSize) {
        const std::size_t part = std::min(chunkSize, TOTAL - sent);
        char size[24];
        std::snprintf(size, sizeof(size), "%zx\r\n", part);
        message += size + std::string(part, 'x') + "\r\n";
    }
    return message + "0\r\n\r\n";
}

void decodeChunks(benchmark::State& state) {
    CvtpClient client;
    Corvane::Bench::MemoryBuffer bytes(chunkedMessage(static_cast<std::size_t>(state.range(0))));
    std::istream in(&bytes);
    in.exceptions(std::ios_base::badbit);
    std::vector<char> piece(std::size_t{64} << 10);
    for (auto _ : state) {
        bytes.rewind();
        CvtpResponse response(&client, &in);
        std::istream& body = *response.getBodyStream();
        std::size_t total = 0;
        while (body.read(piece.data(), static_cast<std::streamsize>(piece.size())) || body.gcount() > 0) {
            total += static_cast<std::size_t>(body.gcount());
        }
        if (total != TOTAL || !response.isBodyComplete()) {
            state.SkipWithError("the body is not what was sent");
        }
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(TOTAL));
}
BENCHMARK(decodeChunks)->Arg(128)->Arg(4096)->Arg(40960);

}  // namespace
