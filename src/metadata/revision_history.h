#pragma once
// The revision-history record: the add-on's released revisions, held as a host structure array and
// as the part "/metadata/revisionHistory.xml".
#include <vector>

#include "metadata/host_fields.h"

namespace addon::packaging {

// One revision. The date and version are text, never parsed.
class ZV_API AddonRevision : public RecordEntry {
 public:
  ustring date;
  ustring version;
  ustring description;
};

// Revisions keep input order: not sorted by date or version, not de-duplicated.
class ZV_API AddonRevisionHistory : public XMLPartType {
 public:
  AddonRevisionHistory();
  // One revision per element of the host structure array, each needing text "date", "version" and
  // "description"; an array without elements gives none.
  explicit AddonRevisionHistory(const qxArray* revisions);

  // A new structure array ("date", "version", "description"), one element per revision; the caller
  // owns it.
  [[nodiscard]] qxArray* getStructArray() const;

  void buildDOM(opc::model::DocumentPtr& document) override;
  // Replaces the revisions with the document's "revision" elements. Absent attributes and a missing
  // "description" child read as empty; a document without a root gives none.
  void populateFromDOM(xercesc::DOMDocument* document) override;

  std::vector<AddonRevision> revisions;
};

}  // namespace addon::packaging
