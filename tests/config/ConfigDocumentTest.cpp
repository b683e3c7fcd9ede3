#include "cvtp/internal/ConfigDocument.h"

#include <ctime>

#include "cvtp/internal/XmlText.h"
#include "tests/config/BadFiles.h"
#include "tests/config/ConfigTest.h"

namespace Corvane {
namespace Testing {

namespace {

using Internal::Cvtp::ConfigDocument;
using Internal::Cvtp::utf8Text;

class ConfigDocumentTest : public ConfigTest {
 protected:
    /// Loads a file of that content and returns what was logged.
    std::vector<std::string> load(const std::string& content) {
        const LogCapture log;
        document.load(write("file.xml", content));
        return log.texts();
    }

    /// The attribute "is" of the entry of that function and component; "none" without such an entry.
    std::string found(const std::string& function, const std::string& component,
                      const std::string& name = "CvtpClient") const {
        const xercesc::DOMElement* const entry = document.findEntry(name, function, component);
        const xercesc::DOMNode* const is =
            entry == nullptr ? nullptr : entry->getAttributes()->getNamedItem(isName().data());
        return is == nullptr ? "none" : utf8Text(is->getNodeValue());
    }

    ConfigDocument document;

 private:
    static std::vector<XMLCh> isName() { return {'i', 's', 0}; }
};

std::vector<std::string> nothing() {
    return {};
}

}  // namespace

TEST_F(ConfigDocumentTest, IsEmptyAtFirst) {
    EXPECT_FALSE(document.isLoaded());
    EXPECT_EQ(found("", ""), "none");
}

TEST_F(ConfigDocumentTest, LoadsAFileAndLogsNothing) {
    EXPECT_EQ(load("<?xml version=\"1.0\"?>\n<!-- a comment -->\n<any/>\n"), nothing());
    EXPECT_TRUE(document.isLoaded());
}

TEST_F(ConfigDocumentTest, TakesTheFirstOfSeveralEntriesThatFit) {
    EXPECT_EQ(load("<any><CvtpClient function=\"f\" component=\"d\" is=\"1\"/>"
                   "<CvtpServer function=\"f\" component=\"c\" is=\"2\"/>"
                   "<CvtpClient function=\"f\" component=\"c\" is=\"3\"/>"
                   "<CvtpClient component=\"c\" function=\"f\" is=\"4\"/>"
                   "<CvtpServer function=\"f\" component=\"c\" is=\"5\"/></any>"),
              nothing());
    EXPECT_EQ(found("f", "c"), "3");
    EXPECT_EQ(found("f", "d"), "1");
    EXPECT_EQ(found("f", "c", "CvtpServer"), "2");
    EXPECT_EQ(found("d", "f"), "none");
}

TEST_F(ConfigDocumentTest, ComparesFunctionAndComponentExactly) {
    load("<any><CvtpClient function=\"Orders\" component=\"Intake desk\" is=\"1\"/></any>");
    EXPECT_EQ(found("Orders", "Intake desk"), "1");
    EXPECT_EQ(found("orders", "Intake desk"), "none");
    EXPECT_EQ(found("Orders", "intake desk"), "none");
    EXPECT_EQ(found("Orders", "Intake"), "none");
    EXPECT_EQ(found("Order", "Intake desk"), "none");
    EXPECT_EQ(found("Orders ", "Intake desk"), "none");
    EXPECT_EQ(found("*", "*"), "none");
    EXPECT_EQ(found("", ""), "none");
    EXPECT_EQ(found(std::string("Orders\0", 7), "Intake desk"), "none");
}

TEST_F(ConfigDocumentTest, TakesAMissingAttributeForAnEmptyOne) {
    load(
        "<any><CvtpClient function=\"f\" is=\"1\"/><CvtpClient component=\"c\" is=\"2\"/>"
        "<CvtpClient is=\"3\"/><CvtpClient function=\"\" component=\"\" is=\"4\"/>"
        "<CvtpClient function=\"g\" component=\"\" is=\"5\"/></any>");
    EXPECT_EQ(found("f", ""), "1");
    EXPECT_EQ(found("", "c"), "2");
    EXPECT_EQ(found("", ""), "3");
    EXPECT_EQ(found("g", ""), "5");
    EXPECT_EQ(found("f", "c"), "none");
}

TEST_F(ConfigDocumentTest, FindsDirectChildrenOfTheRootOnly) {
    load(
        "<any><group><CvtpClient function=\"f\" component=\"c\" is=\"1\"/></group>"
        "<CvtpClient function=\"g\" component=\"c\" is=\"2\">"
        "<CvtpClient function=\"h\" component=\"c\" is=\"3\"/></CvtpClient></any>");
    EXPECT_EQ(found("f", "c"), "none");
    EXPECT_EQ(found("g", "c"), "2");
    EXPECT_EQ(found("h", "c"), "none");
}

TEST_F(ConfigDocumentTest, DoesNotTakeTheRootForAnEntry) {
    load("<CvtpClient function=\"f\" component=\"c\" is=\"1\"/>");
    EXPECT_TRUE(document.isLoaded());
    EXPECT_EQ(found("f", "c"), "none");
}

TEST_F(ConfigDocumentTest, ComparesTheNamesOfElementsExactly) {
    load(
        "<any xmlns:x=\"u\"><cvtpclient is=\"1\"/><CvtpClients is=\"2\"/><x:CvtpClient is=\"3\"/>text"
        "<?CvtpClient is=\"4\"?><!--<CvtpClient is=\"5\"/>--></any>");
    EXPECT_EQ(found("", ""), "none");
    EXPECT_EQ(found("", "", "x:CvtpClient"), "3");
}

TEST_F(ConfigDocumentTest, ReadsTheEncodingsThatAFileNames) {
    const std::string entry = "<CvtpClient function=\"f\" component=\"c\" is=\"1\"/>";
    for (const std::string& text : {"\xef\xbb\xbf<any>" + entry + "</any>", utf16("<any>" + entry + "</any>"),
                                    utf16("<?xml version=\"1.0\" encoding=\"UTF-16\"?><any>" + entry + "</any>")}) {
        ConfigDocument other;
        other.load(write("other.xml", text));
        EXPECT_NE(other.findEntry("CvtpClient", "f", "c"), nullptr);
    }
    load(
        "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><any><CvtpClient function=\"gr\xf6\xdf"
        "er\" is=\"2\"/></any>");
    // The arguments are UTF-8.
    EXPECT_EQ(found("gr\xc3\xb6\xc3\x9f"
                    "er",
                    ""),
              "2");
    EXPECT_EQ(found("gr\xf6\xdf"
                    "er",
                    ""),
              "none");
    EXPECT_EQ(found("gr??er", ""), "none");
}

TEST_F(ConfigDocumentTest, LoadsAFileWithAHarmlessDocumentType) {
    EXPECT_EQ(load("<!DOCTYPE any [<!ELEMENT any ANY><!ENTITY five \"5\"><!ENTITY % none \"\"> %none;"
                   "<!NOTATION n SYSTEM \"viewer\"><!ATTLIST CvtpClient component CDATA \"by default\">]>"
                   "<any><CvtpClient function=\"f&five;\" is=\"&five;&#49;\"/></any>"),
              nothing());
    EXPECT_EQ(found("f5", "by default"), "51");
}

TEST_F(ConfigDocumentTest, DoesNotFindEntriesThatComeOfAnEntity) {
    EXPECT_EQ(load("<!DOCTYPE any [<!ENTITY entry \"<CvtpClient is='1'/>\">]><any>&entry;</any>"), nothing());
    EXPECT_TRUE(document.isLoaded());
    EXPECT_EQ(found("", ""), "none");
}

TEST_F(ConfigDocumentTest, IgnoresWhatValidationFinds) {
    EXPECT_EQ(load("<!DOCTYPE other [<!ELEMENT any EMPTY><!ATTLIST CvtpClient is (a|b) #REQUIRED>]>"
                   "<any><CvtpClient is=\"7\"/><undeclared/></any>"),
              nothing());
    EXPECT_EQ(found("", ""), "7");
}

TEST_F(ConfigDocumentTest, IgnoresWarnings) {
    EXPECT_EQ(load("<!DOCTYPE any [<!ATTLIST any a CDATA \"1\" a CDATA \"2\"><!NOTATION n SYSTEM \"x\">"
                   "<!NOTATION n SYSTEM \"y\">]><any/>"),
              nothing());
    EXPECT_TRUE(document.isLoaded());
}

TEST_F(ConfigDocumentTest, IgnoresWhereASchemaIsSaidToBe) {
    EXPECT_EQ(load("<any xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
                   "xsi:noNamespaceSchemaLocation=\"none.xsd\" xsi:schemaLocation=\"u none.xsd\"/>"),
              nothing());
    EXPECT_TRUE(document.isLoaded());
}

TEST_F(ConfigDocumentTest, LoadsTenThousandEntriesInAFileOfTheLargestSize) {
    std::string text = "<any>\n";
    for (int i = 0; i < 10000; ++i) {
        text += "<CvtpServer function=\"f" + std::to_string(i) +
                "\" component=\"intake\" idle_timeout=\"30000\" accept_timeout=\"1\" is=\"" + std::to_string(i) +
                "\"/>\n";
    }
    text += "</any>";
    ASSERT_LE(text.size(), ConfigDocument::LARGEST_FILE);
    text.resize(ConfigDocument::LARGEST_FILE, ' ');
    EXPECT_EQ(load(text), nothing());
    EXPECT_EQ(found("f9999", "intake", "CvtpServer"), "9999");
}

TEST_F(ConfigDocumentTest, RefusesAFileThatIsTooLarge) {
    std::string text = "<any/>";
    text.resize(ConfigDocument::LARGEST_FILE + 1, ' ');
    EXPECT_EQ(load(text),
              std::vector<std::string>{"ERROR: The cvtp configuration file has more than 1048576 bytes: " +
                                       pathOf("file.xml")});
    EXPECT_FALSE(document.isLoaded());
}

TEST_F(ConfigDocumentTest, RefusesAFileOf100Megabytes) {
    write("large.xml", "<any/>");
    std::filesystem::resize_file(pathOf("large.xml"), 100 * 1024 * 1024);
    const LogCapture log;
    document.load(pathOf("large.xml"));
    EXPECT_EQ(log.texts(),
              std::vector<std::string>{"ERROR: The cvtp configuration file has more than 1048576 bytes: " +
                                       pathOf("large.xml")});
    EXPECT_FALSE(document.isLoaded());
}

TEST_F(ConfigDocumentTest, RefusesAFolder) {
    const LogCapture log;
    document.load(folder.string());
    EXPECT_EQ(log.texts(), std::vector<std::string>{"ERROR: The cvtp configuration file is not a regular file: " +
                                                    folder.string()});
    EXPECT_FALSE(document.isLoaded());
}

TEST_F(ConfigDocumentTest, RefusesAnElementWithTooManyAttributes) {
    const auto withAttributes = [](int count) {
        std::string text = "<any";
        for (int i = 0; i < count; ++i) {
            text += " a" + std::to_string(i) + "=\"\"";
        }
        return text + "/>";
    };
    EXPECT_EQ(load(withAttributes(256)), nothing());
    ConfigDocument other;
    const LogCapture log;
    other.load(write("other.xml", withAttributes(257)));
    EXPECT_EQ(log.texts(), std::vector<std::string>{
                               "ERROR: An element of the configuration file has more than 256 attributes."});
    EXPECT_FALSE(other.isLoaded());
}

TEST_F(ConfigDocumentTest, RefusesTooManyDeclaredAttributes) {
    const auto declaring = [](int count) {
        std::string text = "<!DOCTYPE any [";
        for (int i = 0; i < count; ++i) {
            text += "<!ATTLIST a" + std::to_string(i % 7) + " b" + std::to_string(i) + " CDATA #IMPLIED>";
        }
        return text + "]><any/>";
    };
    EXPECT_EQ(load(declaring(256)), nothing());
    ConfigDocument other;
    const LogCapture log;
    other.load(write("other.xml", declaring(257)));
    EXPECT_EQ(log.texts(),
              std::vector<std::string>{"ERROR: The configuration file declares more than 256 attributes."});
    EXPECT_FALSE(other.isLoaded());
}

TEST_F(ConfigDocumentTest, RefusesAnElementThatIsDeclaredTwice) {
    EXPECT_EQ(load("<!DOCTYPE any [<!ELEMENT any ANY><!ELEMENT any (a)>]><any/>"),
              std::vector<std::string>{"ERROR: element 'any' has already been declared (line 1, column 47)"});
    EXPECT_FALSE(document.isLoaded());
}

TEST_F(ConfigDocumentTest, CountsLevelsAndNotElements) {
    EXPECT_EQ(
        load("<any>" + repeated("<a><b/></a>", 1000) + repeated("<a>", 255) + repeated("</a>", 255) + "</any>"),
        nothing());
    EXPECT_TRUE(document.isLoaded());
    ConfigDocument other;
    const LogCapture log;
    other.load(write("other.xml", repeated("<a>", 256) + "<b/>" + repeated("</a>", 256)));
    EXPECT_EQ(log.texts(),
              std::vector<std::string>{"ERROR: The elements of the configuration file have more than 256 levels."});
}

TEST_F(ConfigDocumentTest, TakesAnEntityOfTheGreatestLength) {
    EXPECT_EQ(load("<!DOCTYPE any [<!ENTITY e \"" + std::string(16384, '5') + "\"><!ENTITY % p \"" +
                   std::string(16384, ' ') + "\"> %p;]><any><CvtpClient is=\"&e;\"/></any>"),
              nothing());
    EXPECT_EQ(found("", ""), std::string(16384, '5'));
    ConfigDocument other;
    const LogCapture log;
    other.load(write("other.xml", "<!DOCTYPE any [<!ENTITY e \"" + std::string(16385, '5') + "\">]><any/>"));
    EXPECT_EQ(log.texts(), std::vector<std::string>{
                               "ERROR: The configuration file declares an entity of more than 16384 characters."});
    EXPECT_FALSE(other.isLoaded());
}

TEST_F(ConfigDocumentTest, ExpandsAThousandEntities) {
    const auto expanding = [](int count) {
        return "<!DOCTYPE any [<!ENTITY e \"5\">]><any>" + repeated("&e;", count) + "</any>";
    };
    EXPECT_EQ(load(expanding(1000)), nothing());
    EXPECT_TRUE(document.isLoaded());
    ConfigDocument other;
    const LogCapture log;
    other.load(write("other.xml", expanding(1001)));
    EXPECT_FALSE(other.isLoaded());
    EXPECT_EQ(log.texts().size(), 1u);
}

TEST_F(ConfigDocumentTest, KeepsWhatItLogsOnOneLine) {
    EXPECT_EQ(
        load("<!DOCTYPE any SYSTEM \"a\nERROR - b\">\n<any/>"),
        std::vector<std::string>{"ERROR: The configuration file refers to something outside of it: a ERROR - b"});
}

/// Each of these ends with one line at ERROR and without a document, and soon.
class BadFileTest : public ConfigTest, public ::testing::WithParamInterface<BadFile> {};

TEST_P(BadFileTest, IsLoggedAndLeavesNoDocument) {
    const std::string path = write("bad.xml", GetParam().content);
    ConfigDocument document;
    const LogCapture log;
    document.load(path);
    ASSERT_EQ(log.texts().size(), 1u);
    const std::string text = log.texts().front();
    EXPECT_EQ(text.substr(0, 7), "ERROR: ");
    EXPECT_GT(text.size(), 7u);
    if (!GetParam().message.empty()) {
        EXPECT_EQ(text.substr(7), GetParam().message);
    }
    EXPECT_FALSE(document.isLoaded());
    EXPECT_EQ(document.findEntry("CvtpClient", "f", ""), nullptr);
}

namespace {

std::string nameOf(const ::testing::TestParamInfo<BadFile>& info) {
    return info.param.name;
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Malformed, BadFileTest, ::testing::ValuesIn(malformedFiles()), nameOf);
INSTANTIATE_TEST_SUITE_P(Outward, BadFileTest, ::testing::ValuesIn(outwardFiles(CVTP_TEST_CONFIG_SCHEMA)), nameOf);
INSTANTIATE_TEST_SUITE_P(Costly, BadFileTest, ::testing::ValuesIn(costlyFiles()), nameOf);

}  // namespace Testing
}  // namespace Corvane
