#include "metadata/addon_properties.h"

namespace addon::packaging {
namespace {

using namespace hostio;
using P = AddonProperties;

// The host fields, in the order they are read and created.
const Text<P> kProperties[] = {{"type", &P::type},
                               {"name", &P::name},
                               {"version", &P::version},
                               {"ZORVANRelease", &P::release},
                               {"summary", &P::summary},
                               {"authorName", &P::authorName},
                               {"authorContact", &P::authorContact},
                               {"authorOrganization", &P::authorOrganization},
                               {"GUID", &P::GUID},
                               {"description", &P::description}};
// The children of "author" in XML.
const Text<P> kAuthor[] = {{"name", &P::authorName}, {"contact", &P::authorContact}, {"organization", &P::authorOrganization}};

}  // namespace

AddonProperties::AddonProperties() {
  setPartIdentifiers(u"addonProperties", u"properties");
}

AddonProperties::AddonProperties(const qxArray* structure) : AddonProperties() {
  readTexts(structure, 0, kProperties, *this);
}

qxArray* AddonProperties::getStructArray() const {
  ArrayPtr result = createStruct(namesOf(kProperties));
  writeTexts(result.get(), 0, kProperties, *this);
  return result.release();
}

void AddonProperties::buildDOM(opc::model::DocumentPtr& document) {
  const XercesString ns(getNamespace());
  DOMElement* root = XercesHelper::appendElementNS(document.get(), ns, u"addonProperties");
  DOMElement* identifier = XercesHelper::appendElementNS(root, ns, u"identifier");
  XercesHelper::setElementAttribute(identifier, u"type", u"GUID");
  XercesHelper::setElementText(identifier, GUID);
  XercesHelper::setElementText(XercesHelper::appendElementNS(root, ns, u"description"), description);
  if (authorName.empty() && authorContact.empty() && authorOrganization.empty()) return;
  DOMElement* author = XercesHelper::appendElementNS(XercesHelper::appendElementNS(root, ns, u"authors"), ns, u"author");
  for (const auto& t : kAuthor) {
    XercesHelper::setElementText(XercesHelper::appendElementNS(author, ns, xmlName(t.name)), this->*t.member);
  }
}

void AddonProperties::populateFromDOM(xercesc::DOMDocument* document) {
  const DOMElement* root = rootOf(document);
  if (root == nullptr) return;
  if (const DOMElement* identifier = XercesHelper::getElement(root, u"identifier")) {
    XercesHelper::getElementText(identifier, GUID);
  }
  if (const DOMElement* text = XercesHelper::getElement(root, u"description")) {
    XercesHelper::getElementText(text, description);
  }
  if (const DOMElement* author = XercesHelper::getElement(XercesHelper::getElement(root, u"authors"), u"author")) {
    for (const auto& t : kAuthor) XercesHelper::getElementText(XercesHelper::getElement(author, xmlName(t.name)), this->*t.member);
  }
}

}  // namespace addon::packaging
