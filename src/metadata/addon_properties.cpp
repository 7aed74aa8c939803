#include "metadata/addon_properties.h"

#include "metadata/host_fields.h"

namespace addon::packaging {
namespace {

using opc::model::XercesHelper;

// Host field names, in the order fields are read and created.
constexpr const char* kType = "type";
constexpr const char* kName = "name";
constexpr const char* kVersion = "version";
constexpr const char* kRelease = "ZORVANRelease";
constexpr const char* kSummary = "summary";
constexpr const char* kAuthorName = "authorName";
constexpr const char* kAuthorContact = "authorContact";
constexpr const char* kAuthorOrganization = "authorOrganization";
constexpr const char* kGUID = "GUID";
constexpr const char* kDescription = "description";

}  // namespace

void AddonProperties::setIdentifiers() {
  setPartIdentifiers(u"/metadata/addonProperties.xml", u"application/vnd.kestrelon.zorvan.addon.properties+xml",
                     schemaURI(u"/zorvan/addon/2014/addonProperties"),
                     schemaURI(u"/zorvan/addon/2014/relationships/addonProperties"));
}

AddonProperties::AddonProperties() { setIdentifiers(); }

AddonProperties::AddonProperties(const qxArray* structure) {
  setIdentifiers();
  type = hostio::readString(structure, kType);
  name = hostio::readString(structure, kName);
  version = hostio::readString(structure, kVersion);
  release = hostio::readString(structure, kRelease);
  summary = hostio::readString(structure, kSummary);
  authorName = hostio::readString(structure, kAuthorName);
  authorContact = hostio::readString(structure, kAuthorContact);
  authorOrganization = hostio::readString(structure, kAuthorOrganization);
  GUID = hostio::readString(structure, kGUID);
  description = hostio::readString(structure, kDescription);
}

qxArray* AddonProperties::getStructArray() const {
  hostio::ArrayPtr result = hostio::createStruct(
      {kType, kName, kVersion, kRelease, kSummary, kAuthorName, kAuthorContact, kAuthorOrganization, kGUID, kDescription});
  qxArray* s = result.get();
  hostio::setString(s, kType, type);
  hostio::setString(s, kName, name);
  hostio::setString(s, kVersion, version);
  hostio::setString(s, kRelease, release);
  hostio::setString(s, kSummary, summary);
  hostio::setString(s, kAuthorName, authorName);
  hostio::setString(s, kAuthorContact, authorContact);
  hostio::setString(s, kAuthorOrganization, authorOrganization);
  hostio::setString(s, kGUID, GUID);
  hostio::setString(s, kDescription, description);
  return result.release();
}

void AddonProperties::buildDOM(opc::model::DocumentPtr& document) {
  const opc::model::XercesString ns(getNamespace());
  xercesc::DOMElement* root = XercesHelper::appendElementNS(document.get(), ns, u"addonProperties");
  xercesc::DOMElement* identifier = XercesHelper::appendElementNS(root, ns, u"identifier");
  XercesHelper::setElementAttribute(identifier, u"type", u"GUID");
  XercesHelper::setElementText(identifier, GUID);
  XercesHelper::setElementText(XercesHelper::appendElementNS(root, ns, u"description"), description);
  if (authorName.empty() && authorContact.empty() && authorOrganization.empty()) return;
  xercesc::DOMElement* authors = XercesHelper::appendElementNS(root, ns, u"authors");
  xercesc::DOMElement* author = XercesHelper::appendElementNS(authors, ns, u"author");
  XercesHelper::setElementText(XercesHelper::appendElementNS(author, ns, u"name"), authorName);
  XercesHelper::setElementText(XercesHelper::appendElementNS(author, ns, u"contact"), authorContact);
  XercesHelper::setElementText(XercesHelper::appendElementNS(author, ns, u"organization"), authorOrganization);
}

void AddonProperties::populateFromDOM(xercesc::DOMDocument* document) {
  const xercesc::DOMElement* root = document ? document->getDocumentElement() : nullptr;
  if (root == nullptr) return;
  if (const auto* identifier = XercesHelper::getElement(root, u"identifier")) {
    XercesHelper::getElementText(identifier, GUID);
  }
  if (const auto* text = XercesHelper::getElement(root, u"description")) {
    XercesHelper::getElementText(text, description);
  }
  const auto* authors = XercesHelper::getElement(root, u"authors");
  // Later authors are ignored; a missing child reads as empty.
  if (const auto* author = XercesHelper::getElement(authors, u"author")) {
    XercesHelper::getElementText(XercesHelper::getElement(author, u"name"), authorName);
    XercesHelper::getElementText(XercesHelper::getElement(author, u"contact"), authorContact);
    XercesHelper::getElementText(XercesHelper::getElement(author, u"organization"), authorOrganization);
  }
}

}  // namespace addon::packaging
