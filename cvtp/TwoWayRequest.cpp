#include "cvtp/TwoWayRequest.h"

#include "cvtp/CvtpResponse.h"
#include "cvtp/internal/AbstractCvtpRequestImpl.h"

namespace Corvane {
namespace Cvtp {

using Internal::Cvtp::AbstractCvtpRequestImpl;

TwoWayRequest::TwoWayRequest(const std::string& method, const std::string& resource, CvtpClient* client,
                             const std::string& pipeName)
    : impl(std::make_unique<AbstractCvtpRequestImpl>(method, resource, AbstractCvtpRequestImpl::TWO_WAY, client,
                                                     pipeName)) {}

TwoWayRequest::~TwoWayRequest() = default;

CvtpResponse* TwoWayRequest::execute() {
    std::unique_ptr<CvtpResponse> response = impl->sendRequest();
    response->readHead();
    return response.release();
}

std::string TwoWayRequest::getStartLine() {
    return impl->getStartLine();
}

void TwoWayRequest::addHeader(const std::string& name, const std::string& value) {
    impl->addHeader(name, value);
}

void TwoWayRequest::setHeader(const std::string& name, const std::string& value) {
    impl->setHeader(name, value);
}

void TwoWayRequest::removeHeader(const std::string& name) {
    impl->removeHeader(name);
}

void TwoWayRequest::setBody(const char* data, std::size_t length) {
    impl->setBody(data, length);
}

bool TwoWayRequest::isCommitted() const {
    return impl->isCommitted();
}

std::string TwoWayRequest::getMethod() const {
    return impl->getMethod();
}

void TwoWayRequest::setResource(const std::string& resource) {
    impl->setResource(resource);
}

std::string TwoWayRequest::getResource() const {
    return impl->getResource();
}

void TwoWayRequest::setBodyStream(std::istream* body) {
    impl->setBodyStream(body);
}

}  // namespace Cvtp
}  // namespace Corvane
