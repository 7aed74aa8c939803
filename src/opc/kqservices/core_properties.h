#pragma once
// The package's core properties: the standard core-properties part, plus a companion part of this
// library for what the standard's schema has no element for.
//
// Where each property lives:
//   title          dc:title             the core-properties part (standard relationship type,
//   description    dc:description       content type and namespaces; valid against the standard's
//   version        cp:version           schema: xsi:type="dcterms:W3CDTF" on the two dates only,
//   creator        dc:creator           no xml:lang, no markup compatibility)
//   created        dcterms:created
//   last modified  dcterms:modified
//   content type, its friendly name, host release   the package-properties part (below), related
//                                                   from the package root by its own type
// The standard's schema has no content-type element (an early draft's cp:contentType did not survive
// into it) and nothing for a host release, so these never appear in the core-properties part.
#include <optional>

#include <boost/date_time/posix_time/ptime.hpp>

#include "foundation/release_info.h"
#include "foundation/ustring.h"
#include "opc/xml/xerces_helper.h"

namespace opc::model {
class Package;
}

namespace opc::kqservices {

// What setCoreProperties writes for the two dates. Off: the dates as given. On: no dates at all, so
// that building the same content twice gives the same bytes.
enum class DeterministicMode : int { Off = 0, On = 1 };

// The core properties as values. Every property may be absent; an absent one is not written. Dates
// are UTC with whole seconds: the setters drop fractions of a second and throw std::invalid_argument
// for a special value (not-a-date-time, infinities).
class CoreProperties {
 public:
  using ptime = boost::posix_time::ptime;
  using ReleaseInfo = foundation::release_info::ReleaseInfo;

  CoreProperties() = default;  // everything absent
  CoreProperties(ustring contentType, ustring friendlyName, ReleaseInfo release);

  void setTitle(ustring title) { title_ = std::move(title); }
  void setDescription(ustring description) { description_ = std::move(description); }
  void setVersion(ustring version) { version_ = std::move(version); }
  void setCreator(ustring creator) { creator_ = std::move(creator); }
  void setCreated(const ptime& created);
  void setLastModified(const ptime& lastModified);
  void setContentType(ustring contentType) { contentType_ = std::move(contentType); }
  void setContentTypeFriendlyName(ustring name) { friendlyName_ = std::move(name); }
  void setZORVANRelease(ReleaseInfo release) { release_ = std::move(release); }

  [[nodiscard]] const std::optional<ustring>& getTitle() const { return title_; }
  [[nodiscard]] const std::optional<ustring>& getDescription() const { return description_; }
  [[nodiscard]] const std::optional<ustring>& getVersion() const { return version_; }
  [[nodiscard]] const std::optional<ustring>& getCreator() const { return creator_; }
  [[nodiscard]] const std::optional<ptime>& getCreated() const { return created_; }
  [[nodiscard]] const std::optional<ptime>& getLastModified() const { return lastModified_; }
  [[nodiscard]] const std::optional<ustring>& getContentType() const { return contentType_; }
  [[nodiscard]] const std::optional<ustring>& getContentTypeFriendlyName() const { return friendlyName_; }
  // The release text ("R2026b"); "" when absent. Throws fl::i18n::conversion_error for a release
  // that is no UTF-8.
  [[nodiscard]] ustring getZORVANRelease() const;
  [[nodiscard]] const std::optional<ReleaseInfo>& getZORVANReleaseInfo() const { return release_; }

  [[nodiscard]] bool operator==(const CoreProperties& other) const = default;

 private:
  std::optional<ustring> title_;
  std::optional<ustring> description_;
  std::optional<ustring> version_;
  std::optional<ustring> creator_;
  std::optional<ptime> created_;
  std::optional<ptime> lastModified_;
  std::optional<ustring> contentType_;
  std::optional<ustring> friendlyName_;
  std::optional<ReleaseInfo> release_;
};

// Reads and writes the core properties of one open package. Holds a reference to the package, which
// must outlive it. Not thread-safe.
//
// Parts: the core-properties part is found through the package root's relationship of the standard
// type, wherever it is; a new one is "/docProps/core.xml". The package-properties part is found the
// same way through its own type (getPackagePropertiesRelationshipType); a new one is
// "/docProps/package.xml".
//
// Errors: opc::Exception for a package with more than one relationship of either type, for a part
// that breaks the standard's rules (a markup-compatibility namespace, xml:lang, xsi:type other than
// dcterms:W3CDTF on the two dates or missing there, an element the schema does not have, a repeated
// element, a date that is no W3CDTF), and for the package's own errors (e.g. writing in read mode).
// setCoreProperties changes the package in memory only; a failure may leave it half changed, which
// the caller's revert() discards.
class CorePropertiesManager {
 public:
  CorePropertiesManager(model::Package& package, DeterministicMode mode);

  // Absent parts give absent properties.
  [[nodiscard]] CoreProperties getCoreProperties() const;
  // Writes every present property and removes the absent ones. Standard properties this class does
  // not model (subject, keywords, category, ...) that an existing core-properties part holds are kept.
  // The package-properties part is removed, with its relationship, when it would be empty.
  void setCoreProperties(const CoreProperties& properties);

  [[nodiscard]] static const ustring& getPackagePropertiesRelationshipType();

 private:
  model::Package& package_;
  DeterministicMode mode_;
  model::XercesGuard guard_;
};

}  // namespace opc::kqservices
