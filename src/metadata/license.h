#pragma once
// The licence agreement record: a short type label and the agreement's full text, shown to whoever
// installs the add-on; held as a host structure and as the part "/metadata/license.xml". Never
// interpreted: both texts are kept exactly, line breaks and all.
#include "metadata/host_fields.h"

namespace addon::packaging {

class ZV_API AddonLicense : public XMLPartType {
 public:
  AddonLicense();
  // From element 0 of a host structure: "type" and "text" are required text fields.
  explicit AddonLicense(const qxArray* license);

  // A new 1-by-1 structure with both fields always set; the caller owns it.
  [[nodiscard]] qxArray* getStructArray() const;

  // Writes the type attribute and the text element even when they are empty.
  void buildDOM(opc::model::DocumentPtr& document) override;
  // Reads the text, then the type. A document without a root or without "licenseText" reads as
  // both empty.
  void populateFromDOM(xercesc::DOMDocument* document) override;

  ustring type;
  ustring text;
};

}  // namespace addon::packaging
