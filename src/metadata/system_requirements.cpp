#include "metadata/system_requirements.h"

namespace addon::packaging {
namespace {

using namespace hostio;
using Requirements = AddonSystemRequirements;

// One name table per group drives host -> record and record -> XML alike.
const Text<ProductDependency> kProduct[] = {
    {"name", &ProductDependency::name}, {"version", &ProductDependency::version}, {"identifier", &ProductDependency::identifier}};
const Text<AddonDependency> kAddon[] = {{"name", &AddonDependency::name},
                                        {"identifier", &AddonDependency::identifier},
                                        {"earliestVersion", &AddonDependency::earliestVersion},
                                        {"latestVersion", &AddonDependency::latestVersion},
                                        {"downloadURL", &AddonDependency::downloadURL},
                                        {"checksum", &AddonDependency::checksum},
                                        {"checksumVersion", &AddonDependency::checksumVersion}};
const Text<Requirements> kPlatform[] = {{"win", &Requirements::platformWin},
                                        {"linux", &Requirements::platformLinux},
                                        {"mac", &Requirements::platformMac},
                                        {"ZORVANOnline", &Requirements::platformOnline}};
const Text<Requirements> kRelease[] = {{"start", &Requirements::releaseStart}, {"end", &Requirements::releaseEnd}};

constexpr const char* kPlatformField = "platformCompatibility";
constexpr const char* kReleaseField = "releaseCompatibility";

// A dependency list: its host field, its XML list and entry elements, its member.
template <class Entry>
struct DependencyList {
  const char* field;
  const char16_t* list;
  const char16_t* entry;
  std::vector<Entry> Requirements::*member;
};
const DependencyList<ProductDependency> kProducts{"productDependency", u"requiredProducts", u"product", &Requirements::products};
const DependencyList<ProductDependency> kSupportPackages{"supportPackageDependency", u"requiredSupportPackages",
                                                         u"supportPackage", &Requirements::supportPackages};
const DependencyList<AddonDependency> kAddons{"addonDependency", u"requiredAddons", u"addon", &Requirements::addons};

const auto& namesOf(const ProductDependency&) { return kProduct; }
const auto& namesOf(const AddonDependency&) { return kAddon; }

// A value counts as given only when it is set and has elements: an unset field and an empty array
// are the same thing to the host's language.
const qxArray* givenField(const qxArray* structure, const char* name) {
  const qxArray* value = field(structure, name);
  return qxIsEmpty(value) ? nullptr : value;
}

template <class Entry>
void readHost(Requirements& r, const qxArray* structure, const DependencyList<Entry>& list) {
  forEachElement(field(structure, list.field), [&](const qxArray* element) { (r.*list.member).emplace_back(element); });
}

template <class Entry>
void writeHost(const Requirements& r, qxArray* structure, const DependencyList<Entry>& list) {
  const std::vector<Entry>& entries = r.*list.member;
  if (entries.empty()) return;
  ArrayPtr array = Entry::createStructArray(entries.size());
  for (std::size_t i = 0; i < entries.size(); ++i) entries[i].addRow(array.get(), i);
  setField(structure, list.field, std::move(array));
}

// A 1-by-1 structure of the group's texts.
ArrayPtr groupStruct(const Requirements& r, const auto& texts) {
  ArrayPtr group = createStruct(namesOf(texts));
  writeTexts(group.get(), 0, texts, r);
  return group;
}

template <class Entry>
void writeXML(const Requirements& r, DOMElement* root, const XercesString& ns, const DependencyList<Entry>& list) {
  if ((r.*list.member).empty()) return;
  DOMElement* element = XercesHelper::appendElementNS(root, ns, ustring(list.list));
  for (const Entry& entry : r.*list.member) {
    setAttributes(XercesHelper::appendElementNS(element, ns, ustring(list.entry)), namesOf(entry), entry);
  }
}

template <class Entry>
void readXML(Requirements& r, const DOMElement* root, const DependencyList<Entry>& list) {
  const DOMElement* element = XercesHelper::getElement(root, ustring(list.list));
  for (const DOMElement* e : XercesHelper::getElements(element, ustring(list.entry))) {
    Entry entry;
    getAttributes(e, namesOf(entry), entry);
    (r.*list.member).push_back(std::move(entry));
  }
}

}  // namespace

ProductDependency::ProductDependency(const qxArray* element) { readTexts(element, 0, kProduct, *this); }

matrix::unique_qxarray_ptr ProductDependency::createStructArray(std::uint64_t count) {
  return createList(namesOf(kProduct), count);
}

void ProductDependency::addRow(qxArray* array, qxIndex index) const { writeTexts(array, index, kProduct, *this); }

AddonDependency::AddonDependency(const qxArray* element) { readTexts(element, 0, kAddon, *this); }

matrix::unique_qxarray_ptr AddonDependency::createStructArray(std::uint64_t count) {
  return createList(namesOf(kAddon), count);
}

void AddonDependency::addRow(qxArray* array, qxIndex index) const { writeTexts(array, index, kAddon, *this); }

AddonSystemRequirements::AddonSystemRequirements() {
  setPartIdentifiers(u"systemRequirements", u"systemRequirements");
  setPlatformDefaults();
}

AddonSystemRequirements::AddonSystemRequirements(const qxArray* requirements) : AddonSystemRequirements() {
  readHost(*this, requirements, kProducts);
  readHost(*this, requirements, kSupportPackages);
  if (const qxArray* platform = givenField(requirements, kPlatformField)) readTexts(platform, 0, kPlatform, *this);
  if (const qxArray* release = givenField(requirements, kReleaseField)) readTexts(release, 0, kRelease, *this);
  readHost(*this, requirements, kAddons);
}

bool AddonSystemRequirements::hasReleaseEndPoints() const { return !releaseStart.empty() && !releaseEnd.empty(); }

void AddonSystemRequirements::setReleaseDefaults() {
  releaseStart.clear();
  releaseEnd.clear();
}

void AddonSystemRequirements::setPlatformDefaults() {
  for (const auto& flag : kPlatform) this->*flag.member = u"true";
}

qxArray* AddonSystemRequirements::getStructArray() const {
  ArrayPtr result = createStruct({kProducts.field, kSupportPackages.field, kPlatformField, kReleaseField, kAddons.field});
  writeHost(*this, result.get(), kProducts);
  writeHost(*this, result.get(), kSupportPackages);
  setField(result.get(), kPlatformField, groupStruct(*this, kPlatform));
  if (hasReleaseEndPoints()) setField(result.get(), kReleaseField, groupStruct(*this, kRelease));
  writeHost(*this, result.get(), kAddons);
  return result.release();
}

void AddonSystemRequirements::buildDOM(opc::model::DocumentPtr& document) {
  const XercesString ns(getNamespace());
  DOMElement* root = XercesHelper::appendElementNS(document.get(), ns, u"systemRequirements");
  writeXML(*this, root, ns, kProducts);
  writeXML(*this, root, ns, kSupportPackages);
  setAttributes(XercesHelper::appendElementNS(root, ns, u"platformCompatibility"), kPlatform, *this);
  if (hasReleaseEndPoints()) setAttributes(XercesHelper::appendElementNS(root, ns, u"releaseCompatibility"), kRelease, *this);
  writeXML(*this, root, ns, kAddons);
}

void AddonSystemRequirements::populateFromDOM(xercesc::DOMDocument* document) {
  products.clear();
  supportPackages.clear();
  addons.clear();
  const DOMElement* root = rootOf(document);
  if (root == nullptr) return;
  readXML(*this, root, kProducts);
  readXML(*this, root, kSupportPackages);
  readXML(*this, root, kAddons);
  if (const DOMElement* platform = XercesHelper::getElement(root, u"platformCompatibility")) {
    getAttributes(platform, kPlatform, *this);
  } else {
    setPlatformDefaults();
  }
  if (const DOMElement* release = XercesHelper::getElement(root, u"releaseCompatibility")) {
    getAttributes(release, kRelease, *this);
  } else {
    setReleaseDefaults();
  }
}

}  // namespace addon::packaging
