#include "metadata/system_requirements.h"

#include <array>
#include <cstddef>
#include <type_traits>
#include <utility>

#include <xercesc/dom/DOMElement.hpp>

#include "metadata/host_fields.h"

namespace addon::packaging {
namespace {

using opc::model::XercesHelper;
using opc::model::XercesString;
using xercesc::DOMElement;

// One text value's name, which is the same on the host side (a field) and in XML (an attribute).
struct TextName {
  const char* host;
  XercesString xml;
};

template <std::size_t N>
using TextNames = std::array<TextName, N>;

const TextNames<3> kProductNames{{{"name", u"name"}, {"version", u"version"}, {"identifier", u"identifier"}}};
const TextNames<7> kAddonNames{{{"name", u"name"},
                                {"identifier", u"identifier"},
                                {"earliestVersion", u"earliestVersion"},
                                {"latestVersion", u"latestVersion"},
                                {"downloadURL", u"downloadURL"},
                                {"checksum", u"checksum"},
                                {"checksumVersion", u"checksumVersion"}}};
const TextNames<4> kPlatformNames{
    {{"win", u"win"}, {"linux", u"linux"}, {"mac", u"mac"}, {"ZORVANOnline", u"ZORVANOnline"}}};
const TextNames<2> kReleaseNames{{{"start", u"start"}, {"end", u"end"}}};

constexpr const char* kProductField = "productDependency";
constexpr const char* kSupportPackageField = "supportPackageDependency";
constexpr const char* kPlatformField = "platformCompatibility";
constexpr const char* kReleaseField = "releaseCompatibility";
constexpr const char* kAddonField = "addonDependency";

// The same text values of an entry in the order of its name table.
template <class P>
auto texts(P& p) requires std::is_same_v<std::remove_const_t<P>, ProductDependency> {
  return std::array{&p.name, &p.version, &p.identifier};
}
template <class A>
auto texts(A& a) requires std::is_same_v<std::remove_const_t<A>, AddonDependency> {
  return std::array{&a.name,        &a.identifier, &a.earliestVersion, &a.latestVersion,
                    &a.downloadURL, &a.checksum,   &a.checksumVersion};
}
const TextNames<3>& namesOf(const ProductDependency&) { return kProductNames; }
const TextNames<7>& namesOf(const AddonDependency&) { return kAddonNames; }

template <std::size_t N>
std::vector<const char*> hostNames(const TextNames<N>& names) {
  std::vector<const char*> result;
  for (const TextName& name : names) result.push_back(name.host);
  return result;
}

template <std::size_t N>
void readHostTexts(const qxArray* structure, const TextNames<N>& names, const std::array<ustring*, N>& out) {
  for (std::size_t k = 0; k < N; ++k) *out[k] = hostio::readString(structure, names[k].host);
}

template <std::size_t N>
void writeHostTexts(qxArray* structure, qxIndex index, const TextNames<N>& names,
                    const std::array<const ustring*, N>& in) {
  for (std::size_t k = 0; k < N; ++k) hostio::setString(structure, names[k].host, *in[k], index);
}

template <std::size_t N>
void writeAttributes(DOMElement* element, const TextNames<N>& names,
                     const std::array<const ustring*, N>& in) {
  for (std::size_t k = 0; k < N; ++k) XercesHelper::setElementAttribute(element, names[k].xml, *in[k]);
}

template <std::size_t N>
void readAttributes(const DOMElement* element, const TextNames<N>& names,
                    const std::array<ustring*, N>& out) {
  for (std::size_t k = 0; k < N; ++k) (void)XercesHelper::getElementAttribute(element, names[k].xml, *out[k]);
}

// A 1-by-1 structure of the named texts.
template <std::size_t N>
hostio::ArrayPtr makeTextStruct(const TextNames<N>& names, const std::array<const ustring*, N>& in) {
  hostio::ArrayPtr structure = hostio::createStruct(hostNames(names));
  writeHostTexts(structure.get(), 0, names, in);
  return structure;
}

// A value counts as given only when it is set and has elements: an unset field and an empty array
// are the same thing to the host's language.
const qxArray* givenField(const qxArray* structure, const char* name) {
  const qxArray* value = hostio::field(structure, name);
  return value == nullptr || qxIsEmpty(value) ? nullptr : value;
}

template <class Entry>
void readHostEntries(const qxArray* structure, const char* name, std::vector<Entry>& entries) {
  hostio::forEachElement(hostio::field(structure, name),
                         [&](const qxArray* element) { entries.emplace_back(element); });
}

template <class Entry>
void writeHostEntries(qxArray* structure, const char* name, const std::vector<Entry>& entries) {
  if (entries.empty()) return;
  hostio::ArrayPtr array = Entry::createStructArray(entries.size());
  for (std::size_t i = 0; i < entries.size(); ++i) entries[i].addRow(array.get(), i);
  hostio::setField(structure, name, std::move(array));
}

template <class Entry>
void writeXMLEntries(DOMElement* root, const XercesString& ns, const XercesString& listName,
                     const XercesString& entryName, const std::vector<Entry>& entries) {
  if (entries.empty()) return;
  DOMElement* list = XercesHelper::appendElementNS(root, ns, listName);
  for (const Entry& entry : entries) {
    writeAttributes(XercesHelper::appendElementNS(list, ns, entryName), namesOf(entry), texts(entry));
  }
}

template <class Entry>
void readXMLEntries(const DOMElement* root, const XercesString& listName, const XercesString& entryName,
                    std::vector<Entry>& entries) {
  const DOMElement* list = XercesHelper::getElement(root, listName);
  for (const DOMElement* element : XercesHelper::getElements(list, entryName)) {
    Entry entry;
    readAttributes(element, namesOf(entry), texts(entry));
    entries.push_back(std::move(entry));
  }
}

}  // namespace

// ---- ProductDependency ------------------------------------------------------------------------

ProductDependency::ProductDependency(const qxArray* element) {
  readHostTexts(element, kProductNames, texts(*this));
}

ProductDependency::~ProductDependency() = default;

matrix::unique_qxarray_ptr ProductDependency::createStructArray(std::uint64_t count) {
  return hostio::createStructList(hostNames(kProductNames), count);
}

void ProductDependency::addRow(qxArray* array, qxIndex index) const {
  writeHostTexts(array, index, kProductNames, texts(*this));
}

// ---- AddonDependency --------------------------------------------------------------------------

AddonDependency::AddonDependency(const qxArray* element) {
  readHostTexts(element, kAddonNames, texts(*this));
}

AddonDependency::~AddonDependency() = default;

matrix::unique_qxarray_ptr AddonDependency::createStructArray(std::uint64_t count) {
  return hostio::createStructList(hostNames(kAddonNames), count);
}

void AddonDependency::addRow(qxArray* array, qxIndex index) const {
  writeHostTexts(array, index, kAddonNames, texts(*this));
}

// ---- AddonSystemRequirements ------------------------------------------------------------------

void AddonSystemRequirements::setIdentifiers() {
  setPartIdentifiers(u"/metadata/systemRequirements.xml",
                     u"application/vnd.kestrelon.zorvan.addon.systemRequirements+xml",
                     schemaURI(u"/zorvan/addon/2014/systemRequirements"),
                     schemaURI(u"/zorvan/addon/2014/relationships/systemRequirements"));
}

AddonSystemRequirements::AddonSystemRequirements() {
  setIdentifiers();
  setPlatformDefaults();
}

AddonSystemRequirements::AddonSystemRequirements(const qxArray* requirements) {
  setIdentifiers();
  readHostEntries(requirements, kProductField, products_);
  readHostEntries(requirements, kSupportPackageField, supportPackages_);
  if (const qxArray* platform = givenField(requirements, kPlatformField)) {
    readHostTexts(platform, kPlatformNames, platformFlags(*this));
  } else {
    setPlatformDefaults();
  }
  if (const qxArray* release = givenField(requirements, kReleaseField)) {
    readHostTexts(release, kReleaseNames, releaseEnds(*this));
  } else {
    setReleaseDefaults();
  }
  readHostEntries(requirements, kAddonField, addons_);
}

AddonSystemRequirements::~AddonSystemRequirements() = default;

bool AddonSystemRequirements::hasReleaseEndPoints() const {
  return !releaseStart_.empty() && !releaseEnd_.empty();
}

void AddonSystemRequirements::setReleaseDefaults() {
  releaseStart_.clear();
  releaseEnd_.clear();
}

void AddonSystemRequirements::setPlatformDefaults() {
  for (ustring* flag : platformFlags(*this)) *flag = u"true";
}

qxArray* AddonSystemRequirements::getStructArray() const {
  hostio::ArrayPtr result =
      hostio::createStruct({kProductField, kSupportPackageField, kPlatformField, kReleaseField, kAddonField});
  writeHostEntries(result.get(), kProductField, products_);
  writeHostEntries(result.get(), kSupportPackageField, supportPackages_);
  hostio::setField(result.get(), kPlatformField, makeTextStruct(kPlatformNames, platformFlags(*this)));
  if (hasReleaseEndPoints()) {
    hostio::setField(result.get(), kReleaseField, makeTextStruct(kReleaseNames, releaseEnds(*this)));
  }
  writeHostEntries(result.get(), kAddonField, addons_);
  return result.release();
}

void AddonSystemRequirements::buildDOM(opc::model::DocumentPtr& document) {
  const XercesString ns(getNamespace());
  DOMElement* root = XercesHelper::appendElementNS(document.get(), ns, u"systemRequirements");
  writeXMLEntries(root, ns, u"requiredProducts", u"product", products_);
  writeXMLEntries(root, ns, u"requiredSupportPackages", u"supportPackage", supportPackages_);
  const AddonSystemRequirements& self = *this;
  writeAttributes(XercesHelper::appendElementNS(root, ns, u"platformCompatibility"), kPlatformNames,
                  platformFlags(self));
  if (hasReleaseEndPoints()) {
    writeAttributes(XercesHelper::appendElementNS(root, ns, u"releaseCompatibility"), kReleaseNames,
                    releaseEnds(self));
  }
  writeXMLEntries(root, ns, u"requiredAddons", u"addon", addons_);
}

void AddonSystemRequirements::populateFromDOM(xercesc::DOMDocument* document) {
  products_.clear();
  supportPackages_.clear();
  addons_.clear();
  const DOMElement* root = document == nullptr ? nullptr : document->getDocumentElement();
  if (root == nullptr) return;
  readXMLEntries(root, u"requiredProducts", u"product", products_);
  readXMLEntries(root, u"requiredSupportPackages", u"supportPackage", supportPackages_);
  readXMLEntries(root, u"requiredAddons", u"addon", addons_);
  if (const DOMElement* platform = XercesHelper::getElement(root, u"platformCompatibility")) {
    readAttributes(platform, kPlatformNames, platformFlags(*this));
  } else {
    setPlatformDefaults();
  }
  if (const DOMElement* release = XercesHelper::getElement(root, u"releaseCompatibility")) {
    readAttributes(release, kReleaseNames, releaseEnds(*this));
  } else {
    setReleaseDefaults();
  }
}

}  // namespace addon::packaging
