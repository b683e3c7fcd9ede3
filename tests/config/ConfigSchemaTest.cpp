// Checks docs/CvtpConfig.xsd, which editors use, against files that the library takes or complains of.

#include <xercesc/framework/LocalFileInputSource.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/parsers/XercesDOMParser.hpp>
#include <xercesc/sax/HandlerBase.hpp>
#include <xercesc/sax/SAXParseException.hpp>
#include <xercesc/util/XMLString.hpp>

#include "cvtp/CvtpClient.h"
#include "cvtp/CvtpServer.h"
#include "cvtp/internal/ConfigDocument.h"
#include "cvtp/internal/ConfigOptions.h"
#include "tests/config/ConfigTest.h"

namespace Corvane {
namespace Testing {

namespace {

using Internal::Cvtp::localText;

using Texts = std::vector<std::string>;

/// Collects what is wrong with a file.
class Complaints : public xercesc::HandlerBase {
 public:
    Texts texts;

    void warning(const xercesc::SAXParseException& complaint) override { add(complaint); }
    void error(const xercesc::SAXParseException& complaint) override { add(complaint); }
    void fatalError(const xercesc::SAXParseException& complaint) override { add(complaint); }

 private:
    void add(const xercesc::SAXParseException& complaint) { texts.push_back(localText(complaint.getMessage())); }
};

class ConfigSchemaTest : public ConfigTest {
 protected:
    static Texts complaintsOf(const std::string& path) {
        Complaints complaints;
        xercesc::XercesDOMParser parser;
        parser.setErrorHandler(&complaints);
        parser.setDoNamespaces(true);
        parser.setDoSchema(true);
        parser.setValidationSchemaFullChecking(true);
        parser.setValidationScheme(xercesc::XercesDOMParser::Val_Always);
        parser.loadGrammar(absolute(CVTP_TEST_CONFIG_SCHEMA).c_str(), xercesc::Grammar::SchemaGrammarType, true);
        parser.useCachedGrammarInParse(true);
        parser.setLoadSchema(false);
        parser.parse(absolute(path).c_str());
        return complaints.texts;
    }

    /// Under Wine Xerces takes a path without a drive for a relative one.
    static std::string absolute(const std::string& path) { return std::filesystem::absolute(path).string(); }

    Texts complaintsOfEntries(const std::string& entries) const {
        return complaintsOf(write("file.xml", "<CvtpConfig>" + entries + "</CvtpConfig>"));
    }
};

}  // namespace

TEST_F(ConfigSchemaTest, IsSatisfiedByTheExample) {
    EXPECT_EQ(complaintsOf(CVTP_TEST_CONFIG_EXAMPLE), Texts());
}

TEST_F(ConfigSchemaTest, IsSatisfiedByWhatTheLibraryTakes) {
    EXPECT_EQ(complaintsOfEntries(""), Texts());
    EXPECT_EQ(complaintsOfEntries(
                  "<!-- --><CvtpServer function=\"f\" component=\"c\" max_request_processors=\"0\" "
                  "accept_timeout=\"0\" idle_timeout=\" 2147483647 \" receive_timeout=\"0\" buffer_size=\"1\"/>"
                  "<CvtpClient function=\"f\" component=\"c\" connect_timeout=\"0\" stale_timeout=\"0\" "
                  "buffer_size=\"1\"/><CvtpClient function=\"f\"/><CvtpServer component=\"c\"/>"),
              Texts());
}

TEST_F(ConfigSchemaTest, ComplainsOfMistakes) {
    for (const char* const entries :
         {"<CvtpServer connect_timeout=\"1\"/>", "<CvtpClient idle_timeout=\"1\"/>",
          "<CvtpClient read_timeout=\"1\"/>", "<CvtpServer idle_timeout=\"\"/>",
          "<CvtpServer idle_timeout=\"1O\"/>", "<CvtpServer idle_timeout=\"2147483648\"/>",
          "<CvtpServer idle_timeout=\"-1\"/>", "<CvtpServer buffer_size=\"0\"/>", "<cvtpServer/>",
          "<group><CvtpServer/></group>", "<CvtpServer>text</CvtpServer>", "text",
          "<CvtpServer function=\"f\" component=\"c\"/><CvtpServer function=\"f\" component=\"c\"/>",
          "<CvtpClient function=\"f\" component=\"c\"/><CvtpClient function=\"f\" component=\"c\"/>"}) {
        EXPECT_NE(complaintsOfEntries(entries), Texts()) << entries;
    }
    EXPECT_NE(complaintsOf(write("other.xml", "<Other/>")), Texts());
}

TEST_F(ConfigSchemaTest, TheLibraryTakesTheExampleWithoutComplaint) {
    const LogCapture log;
    Internal::Cvtp::ConfigDocument document;
    document.load(CVTP_TEST_CONFIG_EXAMPLE);
    Cvtp::CvtpClient client;
    Internal::Cvtp::setClientOptions(client, document, "orders", "intake");
    EXPECT_EQ(client.getIntegerOption(Cvtp::CvtpClient::CONNECTION_TIMEOUT), 5000);
    EXPECT_EQ(client.getIntegerOption(Cvtp::CvtpClient::STALE_TIMEOUT), 10000);
    EXPECT_EQ(client.getIntegerOption(Cvtp::CvtpClient::BUFFER_SIZE), 40960);
    EXPECT_EQ(log.texts(), Texts());
}

}  // namespace Testing
}  // namespace Corvane
