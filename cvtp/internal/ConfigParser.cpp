#include "cvtp/internal/ConfigParser.h"

#include <xercesc/framework/XMLErrorCodes.hpp>
#include <xercesc/framework/XMLValidityCodes.hpp>
#include <xercesc/internal/XMLScanner.hpp>
#include <xercesc/sax/SAXParseException.hpp>
#include <xercesc/util/XMLResourceIdentifier.hpp>
#include <xercesc/util/XMLString.hpp>
#include <xercesc/util/XMLUni.hpp>
#include <xercesc/validators/DTD/DTDEntityDecl.hpp>
#include <xercesc/validators/DTD/DTDValidator.hpp>

#include "cvtp/internal/XmlText.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

using xercesc::XercesDOMParser;
using xercesc::XMLErrorReporter;
using xercesc::XMLString;
using xercesc::XMLUni;

namespace {

/// Finds nothing wrong, as nobody is told of it anyway. To look at the children of an element, Xerces makes tables
/// that can take any amount of memory, and it crashes where there is not enough. To look at attributes, it goes
/// through all the values that are declared, again and again.
class Validator : public xercesc::DTDValidator {
 public:
    bool checkContent(xercesc::XMLElementDecl*, xercesc::QName**, XMLSize_t, XMLSize_t*) override { return true; }
    void validateAttrValue(const xercesc::XMLAttDef*, const XMLCh*, bool, const xercesc::XMLElementDecl*) override {
    }
    void preContentValidation(bool, bool) override {}
    void postParseValidation() override {}
};

}  // namespace

ConfigParser::ConfigParser(LimitedMemory& memory)
    : XercesDOMParser(new (&memory) Validator, &memory), limitedMemory(memory) {
    setValidationScheme(Val_Always);
    setDoNamespaces(true);
    setLoadExternalDTD(false);
    setDisableDefaultEntityResolution(true);
    security.setEntityExpansionLimit(MOST_EXPANSIONS);
    setSecurityManager(&security);
    // These are called only on demand.
    getScanner()->setErrorReporter(this);
    getScanner()->getValidator()->setErrorReporter(this);
    getScanner()->setEntityHandler(this);
}

ConfigParser::~ConfigParser() {
    limitedMemory.openReserve();
}

void ConfigParser::error(unsigned int code, const XMLCh* domain, XMLErrorReporter::ErrTypes type, const XMLCh* text,
                         const XMLCh* systemId, const XMLCh* publicId, XMLFileLoc line, XMLFileLoc column) {
    // A file without a document type is never valid, so what validation finds is no error. But the second
    // declaration of an element would destroy the first one in the middle of the parsing, where the reserve is
    // closed.
    if (XMLString::equals(domain, XMLUni::fgValidityDomain) && code != xercesc::XMLValid::ElementAlreadyExists) {
        return;
    }
    // An exception has ended the parsing, however serious it is said to be. Text that is in another encoding than
    // it says is no mere warning either.
    const bool isException = XMLString::equals(domain, XMLUni::fgExceptDomain);
    if (isException || code == xercesc::XMLErrs::ContradictoryEncoding ||
        type != XMLErrorReporter::ErrType_Warning) {
        throw xercesc::SAXParseException(text, publicId, systemId, line, column, getMemoryManager());
    }
}

xercesc::InputSource* ConfigParser::resolveEntity(xercesc::XMLResourceIdentifier* wanted) {
    refuseReference(wanted->getSystemId());
}

void ConfigParser::doctypeDecl(const xercesc::DTDElementDecl& root, const XMLCh* publicId, const XMLCh* systemId,
                               bool hasInternalSubset, bool hasExternalSubset) {
    if (hasExternalSubset) {
        refuseReference(systemId);
    }
    XercesDOMParser::doctypeDecl(root, publicId, systemId, hasInternalSubset, hasExternalSubset);
}

void ConfigParser::entityDecl(const xercesc::DTDEntityDecl& entity, bool isParameterEntity, bool isIgnored) {
    if (entity.isExternal()) {
        refuseReference(entity.getSystemId());
    }
    if (entity.getValueLen() > LONGEST_ENTITY) {
        refuse("The configuration file declares an entity of more than " + std::to_string(LONGEST_ENTITY) +
               " characters.");
    }
    XercesDOMParser::entityDecl(entity, isParameterEntity, isIgnored);
}

void ConfigParser::attDef(const xercesc::DTDElementDecl& element, const xercesc::DTDAttDef& attribute,
                          bool ignoring) {
    if (++declaredAttributes > MOST_ATTRIBUTES) {
        refuse("The configuration file declares more than " + std::to_string(MOST_ATTRIBUTES) + " attributes.");
    }
    XercesDOMParser::attDef(element, attribute, ignoring);
}

void ConfigParser::startElement(const xercesc::XMLElementDecl& element, unsigned int uri, const XMLCh* prefix,
                                const xercesc::RefVectorOf<xercesc::XMLAttr>& attributes, XMLSize_t attributeCount,
                                bool isEmpty, bool isRoot) {
    if (attributeCount > MOST_ATTRIBUTES) {
        refuse("An element of the configuration file has more than " + std::to_string(MOST_ATTRIBUTES) +
               " attributes.");
    }
    if (levels >= MOST_LEVELS) {
        refuse("The elements of the configuration file have more than " + std::to_string(MOST_LEVELS) + " levels.");
    }
    ++levels;
    XercesDOMParser::startElement(element, uri, prefix, attributes, attributeCount, isEmpty, isRoot);
}

void ConfigParser::endElement(const xercesc::XMLElementDecl& element, unsigned int uri, bool isRoot,
                              const XMLCh* prefix) {
    --levels;
    XercesDOMParser::endElement(element, uri, isRoot, prefix);
}

void ConfigParser::refuse(const std::string& reason) const {
    throw xercesc::SAXException(reason.c_str(), getMemoryManager());
}

void ConfigParser::refuseReference(const XMLCh* systemId) const {
    refuse("The configuration file refers to something outside of it: " + localText(systemId));
}

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
