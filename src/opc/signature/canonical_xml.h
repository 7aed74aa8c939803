#pragma once
// Canonical XML (inclusive, version 1.0, without comments) through xml-security-c, and the
// relationships transform of package signatures built on it.
//
// Callers hold an XercesGuard while calling these.
#include <cstdint>
#include <vector>

#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/dom/DOMNode.hpp>

#include "foundation/ustring.h"

namespace opc::model {
class Relationships;
}

namespace opc::model::signature {

// The canonical form of `node` and its descendants, with the namespaces and xml: attributes in scope
// from its ancestors; the whole document when `node` is the document. UTF-8.
// Throws opc::Exception when xml-security-c fails.
[[nodiscard]] std::vector<std::uint8_t> canonicalize(const xercesc::DOMDocument* document,
                                                     const xercesc::DOMNode* node);

// The relationships transform followed by canonicalisation: the relationships whose Id is in `ids`
// or whose Type is in `types` (exact comparison), sorted by Id in code-point order, each with its
// TargetMode written out, inside a Relationships element of the relationships namespace that holds
// nothing else. An empty selection gives the empty Relationships element.
[[nodiscard]] std::vector<std::uint8_t> transformRelationships(const Relationships& relationships,
                                                               const std::vector<ustring>& ids,
                                                               const std::vector<ustring>& types);

}  // namespace opc::model::signature
