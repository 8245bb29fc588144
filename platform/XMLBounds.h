#pragma once

#include <QtCore/QStringView>

namespace platform {

/// How much of an XML document can be parsed within bounds: all of it, or what stands before the first thing
/// that makes a parser's memory or time grow beyond the document's own length. These are elements nested
/// deeper than 256, a tag with more than 64 attributes, a document type whose internal subset is longer than
/// 65,536 characters or holds more than plain declarations of entities with plain text, and more than 4096
/// references where it declares any.
///
/// Linear in time. Takes the document for well-formed: where it isn't, a parser stops there anyway.
qsizetype lengthWithinXMLBounds(QStringView document);

} // namespace platform
