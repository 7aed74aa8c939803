#pragma once
// The configuration record: how an installed add-on is wired into the host (folders for the search
// path, Java class-path entries, and where three of its documents lie), held as a host structure and
// as the part "/metadata/configuration.xml".
#include <vector>

#include "metadata/host_fields.h"

namespace addon::packaging {

// No path is validated, normalised or de-duplicated; lists keep input order.
// Reading a document empties the two lists but leaves each single path as it was unless the document
// names it: a part without optional elements reads as empty lists and unchanged paths.
class ZV_API AddonConfiguration : public XMLPartType {
 public:
  AddonConfiguration();
  // From element 0 of a host structure (or an empty array). The two lists may be absent or empty;
  // each element must be text. The three single paths are required text fields.
  explicit AddonConfiguration(const qxArray* configuration);

  // A new 1-by-1 structure; the caller owns it. The lists are always set (1-by-0 when empty); an
  // empty single path leaves its field unset.
  [[nodiscard]] qxArray* getStructArray() const;

  void buildDOM(opc::model::DocumentPtr& document) override;
  // An element without text in either list is skipped.
  void populateFromDOM(xercesc::DOMDocument* document) override;

  // Appends an element named `elementName` with `path` as its text to `parent`, in this record's
  // namespace; an empty path appends nothing.
  void addPathToDom(xercesc::DOMElement* parent, const ustring& path, const char* elementName) const;

  std::vector<ustring> zorvanPaths;
  std::vector<ustring> javaClassPaths;
  ustring infoXMLPath;
  ustring gettingStartedDocPath;
  ustring installMapPath;
};

}  // namespace addon::packaging
