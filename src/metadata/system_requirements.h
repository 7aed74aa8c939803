#pragma once
// The system-requirements record: what an add-on needs in order to be installed (host products,
// support packages, other add-ons, platforms, a range of host releases), held as a host structure
// and as the part "/metadata/systemRequirements.xml". It is the part the package signature covers.
#include <cstdint>
#include <vector>

#include "metadata/host_fields.h"

namespace addon::packaging {

// One required host product or support package. Nothing is validated.
class ZV_API ProductDependency : public RecordEntry {
 public:
  ProductDependency() = default;
  // Reads "name", "version", "identifier" of element 0. A missing or non-text field raises the host's
  // conversion error.
  explicit ProductDependency(const qxArray* element);

  // An empty structure array of `count` elements with this class's three fields; the caller owns it.
  [[nodiscard]] static matrix::unique_qxarray_ptr createStructArray(std::uint64_t count);
  // Fills element `index` (0-based) of an array made by createStructArray.
  void addRow(qxArray* array, qxIndex index) const;

  ustring name;
  ustring version;
  ustring identifier;
};

// One required add-on. Nothing is validated.
class ZV_API AddonDependency : public RecordEntry {
 public:
  AddonDependency() = default;
  // Reads the seven fields of element 0 in declaration order. A missing or non-text field raises
  // the host's conversion error.
  explicit AddonDependency(const qxArray* element);

  // An empty structure array of `count` elements with this class's seven fields; the caller owns it.
  [[nodiscard]] static matrix::unique_qxarray_ptr createStructArray(std::uint64_t count);
  // Fills element `index` (0-based) of an array made by createStructArray.
  void addRow(qxArray* array, qxIndex index) const;

  ustring name;
  ustring identifier;
  ustring earliestVersion;
  ustring latestVersion;
  ustring downloadURL;
  ustring checksum;
  ustring checksumVersion;
};

// Lists keep input order, duplicates included. The platform flags are text, kept as given ("false",
// "yes", anything). A release range with only one end counts as no range: it is neither written to
// XML nor returned to the host.
class ZV_API AddonSystemRequirements : public XMLPartType {
 public:
  // No dependencies, no release range, every platform "true".
  AddonSystemRequirements();
  // From element 0 of a host structure (or an empty array, which reads as the defaults). An absent
  // or empty "platformCompatibility" or "releaseCompatibility" gives the defaults; one that is
  // present must carry all its fields as text.
  explicit AddonSystemRequirements(const qxArray* requirements);

  // A new 1-by-1 structure; the caller owns it. Lists and the release range are left unset when
  // there is nothing to say.
  [[nodiscard]] qxArray* getStructArray() const;

  void buildDOM(opc::model::DocumentPtr& document) override;
  // Empties the lists first. Without a root element nothing more happens; otherwise an absent
  // platform or release element resets that group to its defaults.
  void populateFromDOM(xercesc::DOMDocument* document) override;

  // True when both ends of the release range are set.
  [[nodiscard]] bool hasReleaseEndPoints() const;
  void setReleaseDefaults();
  void setPlatformDefaults();

  std::vector<ProductDependency> products;
  std::vector<ProductDependency> supportPackages;
  std::vector<AddonDependency> addons;
  ustring releaseStart;
  ustring releaseEnd;
  ustring platformWin;
  ustring platformLinux;
  ustring platformMac;
  ustring platformOnline;
};

}  // namespace addon::packaging
