#pragma once
// The add-on's identity. Type, name, version, release and summary live in the package's core
// properties (AddonPackage writes and reads them); description, author and GUID in the part
// "/metadata/addonProperties.xml". authorName is kept in both.
#include <optional>

#include <boost/date_time/posix_time/ptime.hpp>

#include "metadata/host_fields.h"

namespace addon::packaging {

class ZV_API AddonProperties : public XMLPartType {
 public:
  AddonProperties();
  // Reads element 0 of the host structure field by field; a missing or non-text field is the host's
  // string-conversion error.
  explicit AddonProperties(const qxArray* structure);

  // A new 1-by-1 structure with the ten host fields; the caller owns it.
  [[nodiscard]] qxArray* getStructArray() const;

  void buildDOM(opc::model::DocumentPtr& document) override;
  // Only the first author counts; a missing child of it reads as empty.
  void populateFromDOM(xercesc::DOMDocument* document) override;

  ustring type;
  ustring name;
  ustring version;
  ustring release;
  ustring summary;
  ustring description;
  ustring authorName;
  ustring authorContact;
  ustring authorOrganization;
  ustring GUID;
  std::optional<boost::posix_time::ptime> lastModified;  // never crosses to the host
};

}  // namespace addon::packaging
