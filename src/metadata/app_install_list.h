#pragma once
// The applications record: the apps an add-on installs, held as a host structure array and as the
// part "/metadata/applications.xml".
#include <vector>

#include "metadata/host_fields.h"

namespace addon::packaging {

// One app. The GUID is text whose form is not checked.
class ZV_API AddonAppInstall : public RecordEntry {
 public:
  ustring name;
  ustring guid;
  ustring relativePath;
  bool installByDefault = false;
};

// Apps keep input order; two apps of one GUID stay two.
// "installByDefault" crosses both boundaries as the text "true" or "false", read leniently one way
// and strictly the other, on purpose: from the host only exactly "false" is false, from XML only
// exactly "true" is true.
class ZV_API AddonAppInstallList : public XMLPartType {
 public:
  AddonAppInstallList();
  // One app per element of the host structure array, each needing text "name", "guid",
  // "relativePath" and "installByDefault"; an array without elements gives none.
  explicit AddonAppInstallList(const qxArray* apps);

  // A new structure array ("name", "guid", "relativePath", "installByDefault"), one element per app;
  // the caller owns it.
  [[nodiscard]] qxArray* getStructArray() const;

  void buildDOM(opc::model::DocumentPtr& document) override;
  // Replaces the apps with the document's "application" elements. Absent attributes and a missing
  // "file" child read as empty (installByDefault as false); a document without a root gives none.
  void populateFromDOM(xercesc::DOMDocument* document) override;

  std::vector<AddonAppInstall> apps;
};

}  // namespace addon::packaging
