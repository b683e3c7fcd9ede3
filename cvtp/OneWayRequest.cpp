#include "cvtp/OneWayRequest.h"

#include "cvtp/CvtpResponse.h"
#include "cvtp/internal/AbstractCvtpRequestImpl.h"

namespace Corvane {
namespace Cvtp {

using Internal::Cvtp::AbstractCvtpRequestImpl;

OneWayRequest::OneWayRequest(const std::string& method, const std::string& resource, CvtpClient* client,
                             const std::string& pipeName)
    : impl(std::make_unique<AbstractCvtpRequestImpl>(method, resource, AbstractCvtpRequestImpl::ONE_WAY, client,
                                                     pipeName)) {}

OneWayRequest::~OneWayRequest() = default;

void OneWayRequest::execute() {
    impl->sendRequest();
}

std::string OneWayRequest::getStartLine() {
    return impl->getStartLine();
}

void OneWayRequest::addHeader(const std::string& name, const std::string& value) {
    impl->addHeader(name, value);
}

void OneWayRequest::setHeader(const std::string& name, const std::string& value) {
    impl->setHeader(name, value);
}

void OneWayRequest::removeHeader(const std::string& name) {
    impl->removeHeader(name);
}

void OneWayRequest::setBody(const char* data, std::size_t length) {
    impl->setBody(data, length);
}

bool OneWayRequest::isCommitted() const {
    return impl->isCommitted();
}

std::string OneWayRequest::getMethod() const {
    return impl->getMethod();
}

void OneWayRequest::setResource(const std::string& resource) {
    impl->setResource(resource);
}

std::string OneWayRequest::getResource() const {
    return impl->getResource();
}

void OneWayRequest::setBodyStream(std::istream* body) {
    impl->setBodyStream(body);
}

}  // namespace Cvtp
}  // namespace Corvane
