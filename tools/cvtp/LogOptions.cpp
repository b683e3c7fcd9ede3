#include "tools/cvtp/LogOptions.h"

#include <CLI/CLI.hpp>
#include <map>

#include "cvtp/CvtpMessage.h"
#include "tools/cvtp/Failure.h"

namespace Corvane {
namespace Tools {

namespace {

using Cvtp::CvtpMessage;

const std::map<std::string, CvtpMessage::LoggingLevel> LEVELS = {{"off", CvtpMessage::LOGGING_OFF},
                                                                 {"error", CvtpMessage::LOGGING_ERROR},
                                                                 {"warn", CvtpMessage::LOGGING_WARN},
                                                                 {"info", CvtpMessage::LOGGING_INFO},
                                                                 {"debug", CvtpMessage::LOGGING_DEBUG}};

CvtpMessage::LoggingLevel levelOf(const LogOptions& options) {
    if (!options.logLevel.empty()) {
        return LEVELS.at(options.logLevel);
    }
    return options.logFile.empty() ? CvtpMessage::LOGGING_OFF : CvtpMessage::LOGGING_INFO;
}

}  // namespace

void LogOptions::addTo(CLI::App& command) {
    command.add_option("--log", logFile, "Append the library's log to this file; - is standard error")
        ->type_name("FILE");
    command
        .add_option("--log-level", logLevel,
                    "How much is logged: off, error, warn, info or debug. With --log it is info if not given, "
                    "otherwise off; without --log the log goes to standard error")
        ->type_name("LEVEL")
        ->check(CLI::IsMember({"off", "error", "warn", "info", "debug"}));
    command
        .add_option("--trace", traceFile,
                    "Append all text and bytes that cross the pipes to this file; - is standard error")
        ->type_name("FILE");
}

LogFiles::File LogFiles::open(const std::string& name) {
    if (name.empty() || name == "-") {
        return File(stderr, [](std::FILE*) {});
    }
    File file(std::fopen(name.c_str(), "ab"), [](std::FILE* opened) { std::fclose(opened); });
    if (file == nullptr) {
        throw UsageError("cannot write to the file '" + name + "'");
    }
    return file;
}

LogFiles::LogFiles(const LogOptions& options)
    : log(open(options.logFile)), trace(options.traceFile.empty() ? File() : open(options.traceFile)) {
    CvtpMessage::setLoggingLevel(log.get(), levelOf(options), trace.get(), CvtpMessage::COMMUNICATION_BOTH);
}

LogFiles::~LogFiles() {
    CvtpMessage::setLoggingLevel(nullptr, CvtpMessage::LOGGING_OFF, nullptr, CvtpMessage::COMMUNICATION_OFF);
}

}  // namespace Tools
}  // namespace Corvane
