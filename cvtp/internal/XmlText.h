#pragma once

#include <xercesc/util/XercesDefs.hpp>

#include <functional>
#include <string>

namespace Corvane {
namespace Internal {
namespace Cvtp {

/// Makes Xerces ready, which counts how often it was asked to. A failure is logged at ERROR and otherwise ignored.
void initializeXml();

/// The same with another way to do it.
void initializeXml(const std::function<void()>& initialize);

/// The text in UTF-8.
std::string utf8Text(const XMLCh* text);

/// The text in the code page of the process's locale, on one line: a control byte becomes a blank.
std::string localText(const XMLCh* text);

/// The integer that the text is, with blanks around it or not.
///
/// @throws xercesc::NumberFormatException it is none, or one that an int cannot hold.
int intIn(const XMLCh* text);

/// A copy on one line: a control byte becomes a blank. What a file holds must not look like a line of the log.
std::string onOneLine(std::string text);

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
