#include "cvtp/internal/XmlText.h"

#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/RuntimeException.hpp>

#include "tests/config/ConfigTest.h"

namespace Corvane {
namespace Testing {

namespace {

using Internal::Cvtp::initializeXml;
using Internal::Cvtp::localText;
using Internal::Cvtp::onOneLine;
using Internal::Cvtp::utf8Text;

using XmlTextTest = ConfigTest;

}  // namespace

TEST_F(XmlTextTest, TurnsATextIntoUtf8) {
    const XMLCh text[] = {'a', 0xe4, 0x20ac, 0xd83d, 0xde00, 0};
    EXPECT_EQ(utf8Text(text), "a\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80");
    const XMLCh empty[] = {0};
    EXPECT_EQ(utf8Text(empty), "");
    EXPECT_EQ(utf8Text(nullptr), "");
}

TEST_F(XmlTextTest, TurnsATextIntoThatOfTheLocaleOnOneLine) {
    const XMLCh text[] = {'a', '\n', 'b', 0};
    EXPECT_EQ(localText(text), "a b");
    const XMLCh empty[] = {0};
    EXPECT_EQ(localText(empty), "");
    EXPECT_EQ(localText(nullptr), "");
}

TEST_F(XmlTextTest, PutsATextOnOneLine) {
    EXPECT_EQ(onOneLine("a\r\nb\tc\x7f\x1b[2J\xc3\xa4 d"), "a  b c  [2J\xc3\xa4 d");
}

TEST_F(XmlTextTest, LogsAFailureToInitializeAndGoesOn) {
    const LogCapture log;
    initializeXml([] { ThrowXML1(xercesc::RuntimeException, xercesc::XMLExcepts::File_CouldNotOpenFile, "none"); });
    EXPECT_EQ(log.texts(), std::vector<std::string>{"ERROR: unable to open file 'none'"});
}

TEST_F(XmlTextTest, LogsNothingWhenAllIsWell) {
    const LogCapture log;
    initializeXml();
    EXPECT_EQ(log.texts(), std::vector<std::string>());
    xercesc::XMLPlatformUtils::Terminate();
}

}  // namespace Testing
}  // namespace Corvane
