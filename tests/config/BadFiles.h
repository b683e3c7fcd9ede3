#pragma once

#include <string>
#include <vector>

namespace Corvane {
namespace Testing {

/// A file that is refused.
struct BadFile {
    /// Of the test.
    std::string name;
    std::string content;
    /// The message of the line at ERROR.
    std::string message;
};

inline const std::string UNEXPECTED = "Unexpected Exception while parsing the Cvtp configuration file";

inline std::string repeated(const std::string& text, int times) {
    std::string all;
    for (int i = 0; i < times; ++i) {
        all += text;
    }
    return all;
}

/// Ten entities of which each stands for ten times the one before. @param sign what a reference begins with.
inline std::string nestedEntities(const std::string& declaration, const std::string& sign,
                                  const std::string& first) {
    std::string all = declaration + "a0 \"" + first + "\">";
    for (int i = 1; i < 10; ++i) {
        all += declaration + "a" + std::to_string(i) + " \"" +
               repeated(sign + "a" + std::to_string(i - 1) + ";", 10) + "\">";
    }
    return all;
}

/// Text of ASCII letters in UTF-16, with the mark of its byte order.
inline std::string utf16(const std::string& text) {
    std::string bytes = "\xff\xfe";
    for (const char c : text) {
        bytes += c;
        bytes += '\0';
    }
    return bytes;
}

/// Files that are no XML, or are in another encoding than they say.
inline std::vector<BadFile> malformedFiles() {
    const std::string xml = "<?xml version=\"1.0\" encoding=";
    return {
        {"Malformed", "<a>\n <b></a>", "expected end of tag 'b' (line 2, column 7)"},
        {"Empty", "", "invalid document structure (line 1, column 1)"},
        {"OnlyBlanks", " \n", "invalid document structure (line 2, column 1)"},
        {"NulBytes", std::string(100, '\0'), "invalid document structure (line 1, column 1)"},
        {"CutOff", "<a><CvtpClient function=\"f\"/>",
         "input ended before all started tags were ended; last tag started is 'a' (line 1, column 30)"},
        {"NoRoot", "<?xml version=\"1.0\"?><!-- --><!DOCTYPE a>", "invalid document structure (line 1, column 42)"},
        {"OnlyTheMarkOfTheEncoding", "\xef\xbb\xbf", "invalid document structure (line 1, column 1)"},
        {"CutOffBehindANameThatIsNotAscii", "<\xc3\xa4>", ""},
        {"MarkOfUtf8ThatSaysItIsUtf16", "\xef\xbb\xbf" + xml + "\"UTF-16\"?><a/>", ""},
        {"UnknownEntity", "<a b=\"&c;\"/>", "entity 'c' not found (line 1, column 10)"},
        {"TextAfterTheRoot", "<a/>text", "comment or processing instruction expected (line 1, column 5)"},
        {"TheSameAttributeTwice", "<a><b c=\"\" c=\"\"/></a>",
         "attribute 'c' is already specified for element 'b' (line 1, column 18)"},
        {"UnknownPrefix", "<a><x:b/></a>", "prefix 'x' can not be resolved to namespace URI (line 1, column 10)"},
        {"UnknownVersion", "<?xml version=\"1.2\"?><a/>", ""},
        {"UnknownEncoding", xml + "\"x-none\"?><a/>", ""},
        {"NotUtf8", "<a b=\"\xc3\x28\"/>", ""},
        {"NotUtf8FarBehind", "<a>" + std::string(100000, ' ') + "<b c=\"\xc3\x28\"/></a>", ""},
        {"NotAscii", xml + "\"US-ASCII\"?><a b=\"\xe4\"/>", ""},
        {"Utf16ThatSaysItIsUtf8", utf16(xml + "\"UTF-8\"?><a/>"), ""},
        {"Utf8ThatSaysItIsUtf16", xml + "\"UTF-16\"?><a/>", ""},
        {"HalfAUtf16Character", utf16("<a>") + "x" + utf16("</a>"), ""},
    };
}

/// Files that refer to something else: a file that could be read, or the network.
inline std::vector<BadFile> outwardFiles(const std::string& otherFile) {
    const std::string refused = "The configuration file refers to something outside of it: ";
    const std::string url = "http://127.0.0.1:9/other";
    const std::string fileUrl = "file://" + otherFile;
    std::vector<BadFile> files;
    for (const std::string& other : {otherFile, fileUrl, url}) {
        const std::string number = std::to_string(files.size());
        files.push_back({"Subset" + number, "<!DOCTYPE a SYSTEM \"" + other + "\"><a/>", refused + other});
        files.push_back(
            {"PublicSubset" + number, "<!DOCTYPE a PUBLIC \"id\" \"" + other + "\" []><a/>", refused + other});
        files.push_back(
            {"Entity" + number, "<!DOCTYPE a [<!ENTITY b SYSTEM \"" + other + "\">]><a>&b;</a>", refused + other});
        files.push_back(
            {"UnusedEntity" + number, "<!DOCTYPE a [<!ENTITY b SYSTEM \"" + other + "\">]><a/>", refused + other});
        files.push_back({"ParameterEntity" + number,
                         "<!DOCTYPE a [<!ENTITY % b SYSTEM \"" + other + "\"> %b;]><a/>", refused + other});
        files.push_back({"UnusedParameterEntity" + number,
                         "<!DOCTYPE a [<!ENTITY % b PUBLIC \"id\" \"" + other + "\">]><a/>", refused + other});
    }
    return files;
}

/// Files that would take much time or memory.
inline std::vector<BadFile> costlyFiles() {
    const std::string expansions =
        "parser has encountered more than '1000' entity expansions in the document; this is the limit imposed by "
        "the "
        "application";
    const std::string entities = nestedEntities("<!ENTITY ", "&", "ha");
    const std::string parameters = nestedEntities("<!ENTITY % ", "&#37;", "<!-- -->");
    return {
        {"NestedEntities", "<!DOCTYPE a [" + entities + "]><a>&a9;</a>", expansions + " (line 1, column 535)"},
        {"NestedEntitiesInAnAttribute", "<!DOCTYPE a [" + entities + "]><a b=\"&a9;\"/>",
         expansions + " (line 1, column 538)"},
        {"NestedEntitiesInADefault", "<!DOCTYPE a [" + entities + "<!ATTLIST a b CDATA \"&a9;\">]><a/>", ""},
        {"NestedParameterEntities", "<!DOCTYPE a [" + parameters + "%a9;]><a/>", UNEXPECTED},
        {"LongEntityManyTimes",
         "<!DOCTYPE a [<!ENTITY b \"" + std::string(16000, 'x') + "\">]><a b=\"" + repeated("&b;", 900) + "\"/>",
         UNEXPECTED},
        {"LongEntity", "<!DOCTYPE a [<!ENTITY b \"" + std::string(1000000, ' ') + "\">]><a/>",
         "The configuration file declares an entity of more than 16384 characters."},
        {"LongParameterEntity",
         "<!DOCTYPE a [<!ENTITY % b \"<!NOTATION c SYSTEM '" + std::string(1000000, ' ') + "'>\">" +
             repeated("%b;", 1000) + "]><a/>",
         "The configuration file declares an entity of more than 16384 characters."},
        {"EntityOfItself", "<!DOCTYPE a [<!ENTITY b \"&c;\"><!ENTITY c \"&b;\">]><a>&b;</a>",
         "recursive entity expansion 'b' (line 1, column 56)"},
        {"ManyLevels", repeated("<a>", 100000) + repeated("</a>", 100000),
         "The elements of the configuration file have more than 256 levels."},
    };
}

}  // namespace Testing
}  // namespace Corvane
