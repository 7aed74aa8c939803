#include "metadata/app_install_list.h"

namespace addon::packaging {
namespace {

using namespace hostio;

// "name" and "guid" are attributes in XML, "relativePath" the text of "file".
const Text<AddonAppInstall> kApp[] = {
    {"name", &AddonAppInstall::name}, {"guid", &AddonAppInstall::guid}, {"relativePath", &AddonAppInstall::relativePath}};
const auto kAttributes = std::span(kApp).first(2);
constexpr const char* kInstallByDefault = "installByDefault";

const char16_t* flagText(bool value) { return value ? u"true" : u"false"; }

}  // namespace

AddonAppInstallList::AddonAppInstallList() {
  setPartIdentifiers(u"applications", u"applications");
}

AddonAppInstallList::AddonAppInstallList(const qxArray* input) : AddonAppInstallList() {
  apps = readList(input, kApp, [&](AddonAppInstall& app, qxIndex i) {
    app.installByDefault = readString(input, kInstallByDefault, i) != u"false";
  });
}

qxArray* AddonAppInstallList::getStructArray() const {
  return writeList(apps, kApp, {kInstallByDefault}, [](qxArray* list, qxIndex i, const AddonAppInstall& app) {
           setString(list, kInstallByDefault, flagText(app.installByDefault), i);
         }).release();
}

void AddonAppInstallList::buildDOM(opc::model::DocumentPtr& document) {
  const XercesString ns(getNamespace());
  DOMElement* root = XercesHelper::appendElementNS(document.get(), ns, u"applications");
  for (const AddonAppInstall& app : apps) {
    DOMElement* element = XercesHelper::appendElementNS(root, ns, u"application");
    setAttributes(element, kAttributes, app);
    XercesHelper::setElementAttribute(element, u"installByDefault", flagText(app.installByDefault));
    XercesHelper::setElementText(XercesHelper::appendElementNS(element, ns, u"file"), app.relativePath);
  }
}

void AddonAppInstallList::populateFromDOM(xercesc::DOMDocument* document) {
  std::vector<AddonAppInstall> read;
  for (const DOMElement* element : XercesHelper::getElements(rootOf(document), u"application")) {
    AddonAppInstall& app = read.emplace_back();
    getAttributes(element, kAttributes, app);
    ustring flag;
    XercesHelper::getElementAttribute(element, u"installByDefault", flag);
    app.installByDefault = flag == u"true";
    XercesHelper::getElementText(XercesHelper::getElement(element, u"file"), app.relativePath);
  }
  apps = std::move(read);
}

}  // namespace addon::packaging
