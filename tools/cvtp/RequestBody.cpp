#include "tools/cvtp/RequestBody.h"

#include <CLI/CLI.hpp>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <system_error>

#include "cvtp/AbstractCvtpRequest.h"
#include "tools/cvtp/Failure.h"

namespace Corvane {
namespace Tools {

namespace {

/// True for a regular file that is small enough to be held in memory.
bool isSmallFile(const std::string& name) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(name, error)) {
        return false;
    }
    const std::uintmax_t size = std::filesystem::file_size(name, error);
    return !error && size <= RequestBody::LARGEST_BY_LENGTH;
}

std::unique_ptr<std::istream> openFile(const std::string& name) {
    std::error_code error;
    auto file = std::make_unique<std::ifstream>(name, std::ios::binary);
    if (!*file || std::filesystem::is_directory(name, error)) {
        throw UsageError("cannot read the file '" + name + "'");
    }
    return file;
}

bool isSentByLength(const BodyOptions& options) {
    if (options.chunked || options.byLength) {
        return options.byLength;
    }
    if (!options.standardInput.empty()) {
        return false;
    }
    return options.file.empty() || isSmallFile(options.file);
}

}  // namespace

void BodyOptions::addTo(CLI::App& command) {
    CLI::Option* const textOption = command.add_option("-d,--data", text, "Send this text as the body");
    CLI::Option* const fileOption = command.add_option("-f,--file", file, "Send this file as the body");
    CLI::Option* const inputOption =
        command.add_option("INPUT", standardInput, "-: send what standard input gives as the body");
    inputOption->type_name("")->check(CLI::IsMember({"-"}));
    textOption->type_name("TEXT")->excludes(fileOption)->excludes(inputOption);
    fileOption->type_name("FILE")->excludes(inputOption);
    CLI::Option* const chunkedOption = command.add_flag(
        "--chunked", chunked, "Send the body in chunks; so it is for standard input and files over 16 MiB");
    command.add_flag("--length", byLength, "Send the body by length; so it is for text and other files")
        ->excludes(chunkedOption);
}

RequestBody::RequestBody(const BodyOptions& options) {
    open(options);
    if (isSentByLength(options)) {
        readWhole(options.file);
    }
}

void RequestBody::giveTo(Cvtp::AbstractCvtpRequest& request) {
    if (stream != nullptr) {
        request.setBodyStream(stream);
    } else {
        request.setBody(bytes.data(), bytes.size());
    }
}

void RequestBody::open(const BodyOptions& options) {
    if (!options.standardInput.empty()) {
        stream = &std::cin;
        return;
    }
    if (options.file.empty()) {
        source = std::make_unique<std::istringstream>(options.text);
    } else {
        source = openFile(options.file);
    }
    stream = source.get();
}

void RequestBody::readWhole(const std::string& name) {
    bytes.assign(std::istreambuf_iterator<char>(*stream), std::istreambuf_iterator<char>());
    if (stream->bad()) {
        throw UsageError("cannot read " + (name.empty() ? "standard input" : "the file '" + name + "'"));
    }
    stream = nullptr;
    source.reset();
}

}  // namespace Tools
}  // namespace Corvane
