#include "metadata/license.h"

#include <xercesc/dom/DOMElement.hpp>

#include "metadata/host_fields.h"

namespace addon::packaging {
namespace {

using opc::model::XercesHelper;
using opc::model::XercesString;
using xercesc::DOMElement;

constexpr const char* kType = "type";
constexpr const char* kText = "text";

}  // namespace

void AddonLicense::setIdentifiers() {
  setPartIdentifiers(u"/metadata/license.xml", u"application/vnd.kestrelon.zorvan.addon.license+xml",
                     schemaURI(u"/zorvan/addon/2014/license"),
                     schemaURI(u"/zorvan/addon/2014/relationships/license"));
}

AddonLicense::AddonLicense() { setIdentifiers(); }

AddonLicense::AddonLicense(const qxArray* license) {
  setIdentifiers();
  type_ = hostio::readString(license, kType);
  text_ = hostio::readString(license, kText);
}

AddonLicense::~AddonLicense() = default;

qxArray* AddonLicense::getStructArray() const {
  hostio::ArrayPtr result = hostio::createStruct({kType, kText});
  hostio::setString(result.get(), kType, type_);
  hostio::setString(result.get(), kText, text_);
  return result.release();
}

void AddonLicense::buildDOM(opc::model::DocumentPtr& document) {
  const XercesString ns(getNamespace());
  DOMElement* root = XercesHelper::appendElementNS(document.get(), ns, u"license");
  DOMElement* licenseText = XercesHelper::appendElementNS(root, ns, u"licenseText");
  XercesHelper::setElementAttribute(licenseText, u"type", type_);
  XercesHelper::setElementText(licenseText, text_);
}

void AddonLicense::populateFromDOM(xercesc::DOMDocument* document) {
  const DOMElement* root = document == nullptr ? nullptr : document->getDocumentElement();
  const DOMElement* licenseText = XercesHelper::getElement(root, u"licenseText");
  XercesHelper::getElementText(licenseText, text_);
  (void)XercesHelper::getElementAttribute(licenseText, u"type", type_);
}

}  // namespace addon::packaging
