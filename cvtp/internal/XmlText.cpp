#include "cvtp/internal/XmlText.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <xercesc/util/NumberFormatException.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/TransService.hpp>
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLString.hpp>

#include "cvtp/internal/Logging.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

using xercesc::XMLString;

void initializeXml() {
    initializeXml([] { xercesc::XMLPlatformUtils::Initialize(); });
}

void initializeXml(const std::function<void()>& initialize) {
    try {
        initialize();
    } catch (const xercesc::XMLException& failure) {
        logError(localText(failure.getMessage()));
    }
}

std::string utf8Text(const XMLCh* text) {
    if (text == nullptr || *text == 0) {
        return std::string();
    }
    const xercesc::TranscodeToStr bytes(text, "UTF-8");
    return std::string(reinterpret_cast<const char*>(bytes.str()), bytes.length());
}

std::string localText(const XMLCh* text) {
    // Without its transcoding service Xerces has not come far enough to turn a text into anything.
    if (text == nullptr || xercesc::XMLPlatformUtils::fgTransService == nullptr) {
        return std::string();
    }
    const auto release = [](char* bytes) { XMLString::release(&bytes); };
    const std::unique_ptr<char, decltype(release)> bytes(XMLString::transcode(text), release);
    return bytes == nullptr ? std::string() : onOneLine(bytes.get());
}

int intIn(const XMLCh* text) {
    const int number = XMLString::parseInt(text);
    // Where a long is longer than an int, Xerces cuts off what an int cannot hold. Where it is not, this is an
    // overflow, and so it is everywhere here.
    if (std::strtoll(utf8Text(text).c_str(), nullptr, 10) != number) {
        ThrowXML(xercesc::NumberFormatException, xercesc::XMLExcepts::Str_ConvertOverflow);
    }
    return number;
}

std::string onOneLine(std::string text) {
    const auto isControl = [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte < 0x20 || byte == 0x7f;
    };
    std::replace_if(text.begin(), text.end(), isControl, ' ');
    return text;
}

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
