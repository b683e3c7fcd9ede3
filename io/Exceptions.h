#pragma once

#include <ios>
#include <string>

#include "support/Export.h"

/// What the library throws. Six classes form one family under CvPipeException, which is a standard stream failure:
/// a handler for std::ios_base::failure or std::exception catches them all. IllegalArgumentException and
/// IllegalStateException report misuse of an object and stand outside the standard exceptions on purpose: only a
/// handler that names them catches them.
///
/// Each holds a message and an integer code; the code is 0 unless the place that throws documents another.
namespace Corvane {
namespace Io {

/// A failure of the transport that has no class of its own, or a malformed incoming message.
///
/// Codes: 1011, the head of a message has no framing header; 1013, a body was asked for of a message whose head
/// could not be read; 0 otherwise.
class CVTP_EXPORT CvPipeException : public std::ios_base::failure {
 public:
    explicit CvPipeException(const std::string& message);
    CvPipeException(const std::string& message, int code);
    CvPipeException(const CvPipeException& other);
    CvPipeException& operator=(const CvPipeException& other);
    ~CvPipeException() override;

    /// The message as given. what() adds to it the standard library's text for a stream error.
    std::string getMessage();
    int getCode();

 private:
    std::string message;
    int code;
};

/// The server's pipe could not be created: another server has the name, or the system refused it.
class CVTP_EXPORT BindException : public CvPipeException {
 public:
    explicit BindException(const std::string& message);
    BindException(const std::string& message, int code);
    BindException(const BindException& other);
    BindException& operator=(const BindException& other);
    ~BindException() override;
};

/// The other end had closed the pipe when it was written to.
class CVTP_EXPORT BrokenPipeException : public CvPipeException {
 public:
    explicit BrokenPipeException(const std::string& message);
    BrokenPipeException(const std::string& message, int code);
    BrokenPipeException(const BrokenPipeException& other);
    BrokenPipeException& operator=(const BrokenPipeException& other);
    ~BrokenPipeException() override;
};

/// The client could not open the pipe: no such pipe, refused, or access denied.
class CVTP_EXPORT ConnectException : public CvPipeException {
 public:
    explicit ConnectException(const std::string& message);
    ConnectException(const std::string& message, int code);
    ConnectException(const ConnectException& other);
    ConnectException& operator=(const ConnectException& other);
    ~ConnectException() override;
};

/// An operation ended because its pipe was closed from another thread, or because the bytes ended inside a line.
class CVTP_EXPORT InterruptedException : public CvPipeException {
 public:
    explicit InterruptedException(const std::string& message);
    InterruptedException(const std::string& message, int code);
    InterruptedException(const InterruptedException& other);
    InterruptedException& operator=(const InterruptedException& other);
    ~InterruptedException() override;
};

/// A connect, read, write or accept took longer than its timeout.
class CVTP_EXPORT TimeoutException : public CvPipeException {
 public:
    explicit TimeoutException(const std::string& message);
    TimeoutException(const std::string& message, int code);
    TimeoutException(const TimeoutException& other);
    TimeoutException& operator=(const TimeoutException& other);
    ~TimeoutException() override;
};

/// An argument that makes no sense, such as a pipe that is neither readable nor writable.
/// Not a std::exception, on purpose; its message is only carried.
class CVTP_EXPORT IllegalArgumentException {
 public:
    explicit IllegalArgumentException(const std::string& message);
    IllegalArgumentException(const std::string& message, int code);
    IllegalArgumentException(const IllegalArgumentException& other);
    IllegalArgumentException& operator=(const IllegalArgumentException& other);
    virtual ~IllegalArgumentException();

 private:
    [[maybe_unused]] std::string message;
    [[maybe_unused]] int code;
};

/// An operation that the state of its object does not allow. Not a std::exception, on purpose.
class CVTP_EXPORT IllegalStateException {
 public:
    explicit IllegalStateException(const std::string& message);
    IllegalStateException(const std::string& message, int code);
    IllegalStateException(const IllegalStateException& other);
    IllegalStateException& operator=(const IllegalStateException& other);
    virtual ~IllegalStateException();

    std::string getMessage() const;
    int getCode() const;

 private:
    std::string message;
    int code;
};

}  // namespace Io
}  // namespace Corvane
