#include "io/Exceptions.h"

#include <system_error>

namespace Corvane {
namespace Io {

CvPipeException::CvPipeException(const std::string& message) : CvPipeException(message, 0) {}

CvPipeException::CvPipeException(const std::string& message, int code)
    : std::ios_base::failure(message, std::io_errc::stream), message(message), code(code) {}

CvPipeException::CvPipeException(const CvPipeException& other) = default;
CvPipeException& CvPipeException::operator=(const CvPipeException& other) = default;
CvPipeException::~CvPipeException() = default;

std::string CvPipeException::getMessage() {
    return message;
}

int CvPipeException::getCode() {
    return code;
}

BindException::BindException(const std::string& message) : CvPipeException(message) {}
BindException::BindException(const std::string& message, int code) : CvPipeException(message, code) {}
BindException::BindException(const BindException& other) = default;
BindException& BindException::operator=(const BindException& other) = default;
BindException::~BindException() = default;

BrokenPipeException::BrokenPipeException(const std::string& message) : CvPipeException(message) {}
BrokenPipeException::BrokenPipeException(const std::string& message, int code) : CvPipeException(message, code) {}
BrokenPipeException::BrokenPipeException(const BrokenPipeException& other) = default;
BrokenPipeException& BrokenPipeException::operator=(const BrokenPipeException& other) = default;
BrokenPipeException::~BrokenPipeException() = default;

ConnectException::ConnectException(const std::string& message) : CvPipeException(message) {}
ConnectException::ConnectException(const std::string& message, int code) : CvPipeException(message, code) {}
ConnectException::ConnectException(const ConnectException& other) = default;
ConnectException& ConnectException::operator=(const ConnectException& other) = default;
ConnectException::~ConnectException() = default;

InterruptedException::InterruptedException(const std::string& message) : CvPipeException(message) {}
InterruptedException::InterruptedException(const std::string& message, int code) : CvPipeException(message, code) {}
InterruptedException::InterruptedException(const InterruptedException& other) = default;
InterruptedException& InterruptedException::operator=(const InterruptedException& other) = default;
InterruptedException::~InterruptedException() = default;

TimeoutException::TimeoutException(const std::string& message) : CvPipeException(message) {}
TimeoutException::TimeoutException(const std::string& message, int code) : CvPipeException(message, code) {}
TimeoutException::TimeoutException(const TimeoutException& other) = default;
TimeoutException& TimeoutException::operator=(const TimeoutException& other) = default;
TimeoutException::~TimeoutException() = default;

IllegalArgumentException::IllegalArgumentException(const std::string& message)
    : IllegalArgumentException(message, 0) {}
IllegalArgumentException::IllegalArgumentException(const std::string& message, int code)
    : message(message), code(code) {}
IllegalArgumentException::IllegalArgumentException(const IllegalArgumentException& other) = default;
IllegalArgumentException& IllegalArgumentException::operator=(const IllegalArgumentException& other) = default;
IllegalArgumentException::~IllegalArgumentException() = default;

IllegalStateException::IllegalStateException(const std::string& message) : IllegalStateException(message, 0) {}
IllegalStateException::IllegalStateException(const std::string& message, int code) : message(message), code(code) {}
IllegalStateException::IllegalStateException(const IllegalStateException& other) = default;
IllegalStateException& IllegalStateException::operator=(const IllegalStateException& other) = default;
IllegalStateException::~IllegalStateException() = default;

std::string IllegalStateException::getMessage() const {
    return message;
}

int IllegalStateException::getCode() const {
    return code;
}

}  // namespace Io
}  // namespace Corvane
