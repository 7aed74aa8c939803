#include "metadata/configuration.h"

#include <array>

#include "foundation/i18n.h"
#include "metadata/host_fields.h"

namespace addon::packaging {
namespace {

using opc::model::XercesHelper;
using opc::model::XercesString;
using xercesc::DOMElement;

// The names of the host fields, which are also the names of the XML elements.
constexpr const char* kZorvanPaths = "zorvanPaths";
constexpr const char* kJavaClassPaths = "javaClassPaths";
constexpr const char* kInfoXMLPath = "infoXMLPath";
constexpr const char* kGettingStartedDocPath = "gettingStartedDocPath";
constexpr const char* kInstallMapPath = "installMapPath";

void appendList(DOMElement* root, const XercesString& ns, const XercesString& listName,
                const XercesString& entryName, const std::vector<ustring>& entries) {
  if (entries.empty()) return;
  DOMElement* list = XercesHelper::appendElementNS(root, ns, listName);
  for (const ustring& entry : entries) {
    XercesHelper::setElementText(XercesHelper::appendElementNS(list, ns, entryName), entry);
  }
}

// An entry without text is skipped, so an empty path written to a list does not come back.
void readList(const DOMElement* root, const XercesString& listName, const XercesString& entryName,
              std::vector<ustring>& entries) {
  const DOMElement* list = XercesHelper::getElement(root, listName);
  for (const DOMElement* element : XercesHelper::getElements(list, entryName)) {
    ustring text;
    XercesHelper::getElementText(element, text);
    if (!text.empty()) entries.push_back(std::move(text));
  }
}

}  // namespace

void AddonConfiguration::setIdentifiers() {
  setPartIdentifiers(u"/metadata/configuration.xml",
                     u"application/vnd.kestrelon.zorvan.addon.configuration+xml",
                     schemaURI(u"/zorvan/addon/2014/configuration"),
                     schemaURI(u"/zorvan/addon/2014/relationships/configuration"));
}

AddonConfiguration::AddonConfiguration() { setIdentifiers(); }

AddonConfiguration::AddonConfiguration(const qxArray* configuration) {
  setIdentifiers();
  zorvanPaths_ = hostio::readStringList(hostio::field(configuration, kZorvanPaths));
  javaClassPaths_ = hostio::readStringList(hostio::field(configuration, kJavaClassPaths));
  infoXMLPath_ = hostio::readString(configuration, kInfoXMLPath);
  gettingStartedDocPath_ = hostio::readString(configuration, kGettingStartedDocPath);
  installMapPath_ = hostio::readString(configuration, kInstallMapPath);
}

AddonConfiguration::~AddonConfiguration() = default;

qxArray* AddonConfiguration::getStructArray() const {
  hostio::ArrayPtr result = hostio::createStruct(
      {kZorvanPaths, kJavaClassPaths, kInfoXMLPath, kGettingStartedDocPath, kInstallMapPath});
  hostio::setField(result.get(), kZorvanPaths, hostio::makeStringList(zorvanPaths_));
  hostio::setField(result.get(), kJavaClassPaths, hostio::makeStringList(javaClassPaths_));
  const std::array<std::pair<const char*, const ustring*>, 3> paths{
      {{kInfoXMLPath, &infoXMLPath_},
       {kGettingStartedDocPath, &gettingStartedDocPath_},
       {kInstallMapPath, &installMapPath_}}};
  for (const auto& [name, path] : paths) {
    if (!path->empty()) hostio::setString(result.get(), name, *path);
  }
  return result.release();
}

void AddonConfiguration::addPathToDom(DOMElement* parent, const ustring& path,
                                      const char* elementName) const {
  if (path.empty()) return;
  DOMElement* element = XercesHelper::appendElementNS(parent, XercesString(getNamespace()),
                                                      XercesString(fl::i18n::from_utf8(elementName)));
  XercesHelper::setElementText(element, path);
}

void AddonConfiguration::buildDOM(opc::model::DocumentPtr& document) {
  const XercesString ns(getNamespace());
  DOMElement* root = XercesHelper::appendElementNS(document.get(), ns, u"configuration");
  appendList(root, ns, u"zorvanPaths", u"zorvanPath", zorvanPaths_);
  appendList(root, ns, u"javaClassPaths", u"javaClassPath", javaClassPaths_);
  addPathToDom(root, infoXMLPath_, kInfoXMLPath);
  addPathToDom(root, gettingStartedDocPath_, kGettingStartedDocPath);
  addPathToDom(root, installMapPath_, kInstallMapPath);
}

void AddonConfiguration::populateFromDOM(xercesc::DOMDocument* document) {
  zorvanPaths_.clear();
  javaClassPaths_.clear();
  const DOMElement* root = document == nullptr ? nullptr : document->getDocumentElement();
  readList(root, u"zorvanPaths", u"zorvanPath", zorvanPaths_);
  readList(root, u"javaClassPaths", u"javaClassPath", javaClassPaths_);
  const std::array<std::pair<XercesString, ustring*>, 3> paths{
      {{u"infoXMLPath", &infoXMLPath_},
       {u"gettingStartedDocPath", &gettingStartedDocPath_},
       {u"installMapPath", &installMapPath_}}};
  for (const auto& [name, path] : paths) {
    if (const DOMElement* element = XercesHelper::getElement(root, name))
      XercesHelper::getElementText(element, *path);
  }
}

}  // namespace addon::packaging
