#pragma once
// The configuration record: how an installed add-on is wired into the host (folders for the search
// path, Java class-path entries, and where three of its documents lie), held as a host structure and
// as the part "/metadata/configuration.xml".
#include <vector>

#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/dom/DOMElement.hpp>

#include "foundation/ustring.h"
#include "host/qx.h"
#include "package/xml_part_type.h"

namespace addon::packaging {

// No path is validated, normalised or de-duplicated; lists keep input order.
// Reading a document empties the two lists but leaves each single path as it was unless the document
// names it: a part without optional elements reads as empty lists and unchanged paths.
// Errors: host conversion errors from the structure constructor, host errors from getStructArray,
// opc::Exception from the XML operations; a failed constructor or getStructArray leaks nothing.
class ZV_API AddonConfiguration : public XMLPartType {
 public:
  AddonConfiguration();
  // From element 0 of a host structure (or an empty array). The two lists may be absent or empty;
  // each element must be text. The three single paths are required text fields.
  explicit AddonConfiguration(const qxArray* configuration);
  ~AddonConfiguration() override;

  // A new 1-by-1 structure; the caller owns it. The lists are always set (1-by-0 when empty); an
  // empty single path leaves its field unset.
  [[nodiscard]] qxArray* getStructArray() const;

  void buildDOM(opc::model::DocumentPtr& document) override;
  // An element without text in either list is skipped.
  void populateFromDOM(xercesc::DOMDocument* document) override;

  // Appends an element named `elementName` with `path` as its text to `parent`, in this record's
  // namespace; an empty path appends nothing.
  void addPathToDom(xercesc::DOMElement* parent, const ustring& path, const char* elementName) const;

  [[nodiscard]] const std::vector<ustring>& getZorvanPaths() const { return zorvanPaths_; }
  [[nodiscard]] const std::vector<ustring>& getJavaClassPaths() const { return javaClassPaths_; }
  [[nodiscard]] const ustring& getInfoXMLPath() const { return infoXMLPath_; }
  [[nodiscard]] const ustring& getGettingStartedDocPath() const { return gettingStartedDocPath_; }
  [[nodiscard]] const ustring& getInstallMapPath() const { return installMapPath_; }

 private:
  void setIdentifiers();

  std::vector<ustring> zorvanPaths_;
  std::vector<ustring> javaClassPaths_;
  ustring infoXMLPath_;
  ustring gettingStartedDocPath_;
  ustring installMapPath_;
};

}  // namespace addon::packaging
