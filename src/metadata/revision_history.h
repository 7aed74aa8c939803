#pragma once
// The revision-history record: the add-on's released revisions, held as a host structure array and
// as the part "/metadata/revisionHistory.xml".
#include <cstdint>
#include <vector>

#include <xercesc/dom/DOMDocument.hpp>

#include "foundation/ustring.h"
#include "host/qx.h"
#include "package/xml_part_type.h"

namespace addon::packaging {

// One revision. A copyable value; the date and version are text, never parsed.
class ZV_API AddonRevision {
 public:
  AddonRevision() = default;
  AddonRevision(const AddonRevision&) = default;
  AddonRevision(AddonRevision&&) = default;
  AddonRevision& operator=(const AddonRevision&) = default;
  AddonRevision& operator=(AddonRevision&&) = default;
  virtual ~AddonRevision();

  ustring date;
  ustring version;
  ustring description;
};

// Revisions keep input order: not sorted by date or version, not de-duplicated.
// Errors: host conversion errors from the structure constructor, host errors from getStructArray,
// opc::Exception from the XML operations; a failed constructor or getStructArray leaks nothing.
class ZV_API AddonRevisionHistory : public XMLPartType {
 public:
  AddonRevisionHistory();
  // One revision per element of the host structure array, each needing text "date", "version" and
  // "description"; an array without elements gives none.
  explicit AddonRevisionHistory(const qxArray* revisions);

  // A new structure array ("date", "version", "description"), one element per revision. The caller
  // owns it.
  [[nodiscard]] qxArray* getStructArray() const;

  void buildDOM(opc::model::DocumentPtr& document) override;
  // Replaces the revisions with the document's "revision" elements. Absent attributes and a missing
  // "description" child read as empty; a document without a root gives none.
  void populateFromDOM(xercesc::DOMDocument* document) override;

  std::vector<AddonRevision> revisions;

 private:
  void setIdentifiers();
};

}  // namespace addon::packaging
