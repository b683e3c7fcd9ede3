#pragma once

#include <istream>
#include <memory>
#include <string>

namespace CLI {
class App;
}

namespace Corvane {
namespace Cvtp {
class AbstractCvtpRequest;
}

namespace Tools {

/// Where the body of a request comes from and how it is framed, as the user said it.
struct BodyOptions {
    std::string text;
    std::string file;
    /// "-" or empty.
    std::string standardInput;
    bool chunked = false;
    bool byLength = false;

    void addTo(CLI::App& command);
};

/// The body of a request, either as bytes or as an open stream. Must outlive the sending of the request.
class RequestBody {
 public:
    /// The largest file that is sent by length unless the user asks for it.
    static constexpr std::uintmax_t LARGEST_BY_LENGTH = 16 * 1024 * 1024;

    /// Opens the source; reads it when it is sent by length.
    ///
    /// @throws UsageError the file cannot be read.
    explicit RequestBody(const BodyOptions& options);

    void giveTo(Cvtp::AbstractCvtpRequest& request);

 private:
    void open(const BodyOptions& options);
    void readWhole(const std::string& name);

    /// Owns what `stream` refers to, unless that is standard input.
    std::unique_ptr<std::istream> source;
    /// Null when the body is in `bytes`.
    std::istream* stream = nullptr;
    std::string bytes;
};

}  // namespace Tools
}  // namespace Corvane
