#include "metadata/license.h"

namespace addon::packaging {
namespace {

using namespace hostio;

// "type" is an attribute in XML, "text" the text of "licenseText".
const Text<AddonLicense> kLicense[] = {{"type", &AddonLicense::type}, {"text", &AddonLicense::text}};

}  // namespace

AddonLicense::AddonLicense() {
  setPartIdentifiers(u"license", u"license");
}

AddonLicense::AddonLicense(const qxArray* license) : AddonLicense() { readTexts(license, 0, kLicense, *this); }

qxArray* AddonLicense::getStructArray() const {
  ArrayPtr result = createStruct(namesOf(kLicense));
  writeTexts(result.get(), 0, kLicense, *this);
  return result.release();
}

void AddonLicense::buildDOM(opc::model::DocumentPtr& document) {
  const XercesString ns(getNamespace());
  DOMElement* root = XercesHelper::appendElementNS(document.get(), ns, u"license");
  DOMElement* licenseText = XercesHelper::appendElementNS(root, ns, u"licenseText");
  XercesHelper::setElementAttribute(licenseText, u"type", type);
  XercesHelper::setElementText(licenseText, text);
}

void AddonLicense::populateFromDOM(xercesc::DOMDocument* document) {
  const DOMElement* licenseText = XercesHelper::getElement(rootOf(document), u"licenseText");
  XercesHelper::getElementText(licenseText, text);
  (void)XercesHelper::getElementAttribute(licenseText, u"type", type);
}

}  // namespace addon::packaging
