// Writing and reading the head of a message, with a body of 100 bytes given by its length.

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <memory>

#include "cvtp/CvtpClient.h"
#include "cvtp/CvtpResponse.h"
#include "cvtp/CvtpServer.h"
#include "cvtp/CvtpServerResponse.h"
#include "micro/Support.h"
#include "support/Utf8String.h"

namespace {

using namespace Corvane::Cvtp;
using Corvane::Bench::MemoryBuffer;
using Corvane::Bench::NullBuffer;

const std::string BODY(100, 'x');

void writeHead(benchmark::State& state) {
    CvtpServer server(Corvane::Bench::freePipeName(), 1);
    NullBuffer sink;
    std::ostream out(&sink);
    Corvane::Xml::Utf8String scratch;
    for (auto _ : state) {
        CvtpServerResponse response(&server, &out, &scratch);
        response.setStatusCode(CvtpMessage::STATUS_OK);
        response.setBody(BODY.data(), BODY.size());
        response.send();
    }
}
BENCHMARK(writeHead);

void readHead(benchmark::State& state) {
    CvtpClient client;
    MemoryBuffer bytes("CVTP/1.0 200 OK\r\nContent-Length: 100\r\nServer: CvtpServer\r\n\r\n" + BODY);
    std::istream in(&bytes);
    in.exceptions(std::ios_base::badbit);
    for (auto _ : state) {
        bytes.rewind();
        CvtpResponse response(&client, &in);
        benchmark::DoNotOptimize(response.getStatusCode());
    }
}
BENCHMARK(readHead);

void readHeadAndBody(benchmark::State& state) {
    CvtpClient client;
    MemoryBuffer bytes("CVTP/1.0 200 OK\r\nContent-Length: 100\r\nServer: CvtpServer\r\n\r\n" + BODY);
    std::istream in(&bytes);
    in.exceptions(std::ios_base::badbit);
    for (auto _ : state) {
        bytes.rewind();
        CvtpResponse response(&client, &in);
        char* data = nullptr;
        std::size_t length = 0;
        response.getBody(data, length);
        if (length != BODY.size()) {
            state.SkipWithError("the body is not what was sent");
        }
        std::free(data);
    }
}
BENCHMARK(readHeadAndBody);

}  // namespace
