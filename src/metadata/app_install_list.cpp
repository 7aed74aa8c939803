#include "metadata/app_install_list.h"

#include "metadata/host_fields.h"

namespace addon::packaging {
namespace {

using opc::model::XercesHelper;

constexpr const char* kName = "name";
constexpr const char* kGuid = "guid";
constexpr const char* kRelativePath = "relativePath";
constexpr const char* kInstallByDefault = "installByDefault";

const char16_t* flagText(bool value) { return value ? u"true" : u"false"; }

}  // namespace

AddonAppInstall::~AddonAppInstall() = default;

void AddonAppInstallList::setIdentifiers() {
  setPartIdentifiers(u"/metadata/applications.xml", u"application/vnd.kestrelon.zorvan.addon.applications+xml",
                     schemaURI(u"/zorvan/addon/2014/applications"),
                     schemaURI(u"/zorvan/addon/2014/relationships/applications"));
}

AddonAppInstallList::AddonAppInstallList() { setIdentifiers(); }

AddonAppInstallList::AddonAppInstallList(const qxArray* input) {
  setIdentifiers();
  const qxSize count = qxGetNumberOfElements(input);
  apps.reserve(count);
  for (qxSize i = 0; i < count; ++i) {
    AddonAppInstall& app = apps.emplace_back();
    app.name = hostio::readString(input, kName, i);
    app.guid = hostio::readString(input, kGuid, i);
    app.relativePath = hostio::readString(input, kRelativePath, i);
    app.installByDefault = hostio::readString(input, kInstallByDefault, i) != u"false";
  }
}

qxArray* AddonAppInstallList::getStructArray() const {
  hostio::ArrayPtr result =
      hostio::createStructList({kName, kGuid, kRelativePath, kInstallByDefault}, apps.size());
  for (qxSize i = 0; i < apps.size(); ++i) {
    hostio::setString(result.get(), kName, apps[i].name, i);
    hostio::setString(result.get(), kGuid, apps[i].guid, i);
    hostio::setString(result.get(), kRelativePath, apps[i].relativePath, i);
    hostio::setString(result.get(), kInstallByDefault, flagText(apps[i].installByDefault), i);
  }
  return result.release();
}

void AddonAppInstallList::buildDOM(opc::model::DocumentPtr& document) {
  const opc::model::XercesString ns(getNamespace());
  xercesc::DOMElement* root = XercesHelper::appendElementNS(document.get(), ns, u"applications");
  for (const AddonAppInstall& app : apps) {
    xercesc::DOMElement* element = XercesHelper::appendElementNS(root, ns, u"application");
    XercesHelper::setElementAttribute(element, u"name", app.name);
    XercesHelper::setElementAttribute(element, u"guid", app.guid);
    XercesHelper::setElementAttribute(element, u"installByDefault", flagText(app.installByDefault));
    XercesHelper::setElementText(XercesHelper::appendElementNS(element, ns, u"file"), app.relativePath);
  }
}

void AddonAppInstallList::populateFromDOM(xercesc::DOMDocument* document) {
  std::vector<AddonAppInstall> read;
  const xercesc::DOMElement* root = document ? document->getDocumentElement() : nullptr;
  for (const xercesc::DOMElement* element : XercesHelper::getElements(root, u"application")) {
    AddonAppInstall& app = read.emplace_back();
    XercesHelper::getElementAttribute(element, u"name", app.name);
    XercesHelper::getElementAttribute(element, u"guid", app.guid);
    ustring flag;
    XercesHelper::getElementAttribute(element, u"installByDefault", flag);
    app.installByDefault = flag == u"true";
    XercesHelper::getElementText(XercesHelper::getElement(element, u"file"), app.relativePath);
  }
  apps = std::move(read);
}

}  // namespace addon::packaging
