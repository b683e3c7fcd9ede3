#pragma once

#include <cstddef>
#include <string>
#include <xercesc/parsers/XercesDOMParser.hpp>
#include <xercesc/util/SecurityManager.hpp>

#include "cvtp/internal/LimitedMemory.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

/// Parses a configuration file. It opens nothing else, and refuses what would lead it to, or cost much time.
///
/// What parse() throws for a file that is not in order is a SAXException. Without that Xerces would return with the
/// part of the document that it understood, and say nothing.
class ConfigParser : public xercesc::XercesDOMParser {
 public:
    /// How many entities are expanded, and how many characters each may stand for, but for those of other entities.
    static constexpr std::size_t MOST_EXPANSIONS = 1000;
    static constexpr std::size_t LONGEST_ENTITY = 16 * 1024;
    /// How deep elements may lie in each other, how many attributes one may have, and how many may be declared. The
    /// time that Xerces takes grows with the square of each.
    static constexpr std::size_t MOST_LEVELS = 256;
    static constexpr std::size_t MOST_ATTRIBUTES = 256;

    /// @param memory must outlive the parser and what it throws.
    explicit ConfigParser(LimitedMemory& memory);

    ~ConfigParser() override;

    void error(unsigned int code, const XMLCh* domain, xercesc::XMLErrorReporter::ErrTypes type, const XMLCh* text,
               const XMLCh* systemId, const XMLCh* publicId, XMLFileLoc line, XMLFileLoc column) override;

    xercesc::InputSource* resolveEntity(xercesc::XMLResourceIdentifier* wanted) override;

    void doctypeDecl(const xercesc::DTDElementDecl& root, const XMLCh* publicId, const XMLCh* systemId,
                     bool hasInternalSubset, bool hasExternalSubset) override;
    void entityDecl(const xercesc::DTDEntityDecl& entity, bool isParameterEntity, bool isIgnored) override;
    void attDef(const xercesc::DTDElementDecl& element, const xercesc::DTDAttDef& attribute,
                bool ignoring) override;

    void startElement(const xercesc::XMLElementDecl& element, unsigned int uri, const XMLCh* prefix,
                      const xercesc::RefVectorOf<xercesc::XMLAttr>& attributes, XMLSize_t attributeCount,
                      bool isEmpty, bool isRoot) override;
    void endElement(const xercesc::XMLElementDecl& element, unsigned int uri, bool isRoot,
                    const XMLCh* prefix) override;

 private:
    [[noreturn]] void refuse(const std::string& reason) const;
    [[noreturn]] void refuseReference(const XMLCh* systemId) const;

    LimitedMemory& limitedMemory;
    xercesc::SecurityManager security;
    std::size_t levels = 0;
    std::size_t declaredAttributes = 0;
};

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
