#include "metadata/configuration.h"

namespace addon::packaging {
namespace {

using namespace hostio;

// Host fields, which are also the names of the XML elements.
struct PathList {
  const char* name;
  const char16_t* entry;  // the XML element of one entry
  std::vector<ustring> AddonConfiguration::*member;
};
const PathList kLists[] = {{"zorvanPaths", u"zorvanPath", &AddonConfiguration::zorvanPaths},
                           {"javaClassPaths", u"javaClassPath", &AddonConfiguration::javaClassPaths}};
const Text<AddonConfiguration> kPaths[] = {{"infoXMLPath", &AddonConfiguration::infoXMLPath},
                                           {"gettingStartedDocPath", &AddonConfiguration::gettingStartedDocPath},
                                           {"installMapPath", &AddonConfiguration::installMapPath}};

}  // namespace

AddonConfiguration::AddonConfiguration() {
  setPartIdentifiers(u"configuration", u"configuration");
}

AddonConfiguration::AddonConfiguration(const qxArray* configuration) : AddonConfiguration() {
  for (const PathList& list : kLists) this->*list.member = readStringList(field(configuration, list.name));
  readTexts(configuration, 0, kPaths, *this);
}

qxArray* AddonConfiguration::getStructArray() const {
  ArrayPtr result = createStruct(namesOf(kLists, namesOf(kPaths)));
  for (const PathList& list : kLists) setField(result.get(), list.name, makeStringList(this->*list.member));
  for (const auto& path : kPaths) {
    if (!(this->*path.member).empty()) setString(result.get(), path.name, this->*path.member);
  }
  return result.release();
}

void AddonConfiguration::addPathToDom(DOMElement* parent, const ustring& path, const char* elementName) const {
  if (path.empty()) return;
  XercesHelper::setElementText(XercesHelper::appendElementNS(parent, getNamespace(), xmlName(elementName)), path);
}

void AddonConfiguration::buildDOM(opc::model::DocumentPtr& document) {
  const XercesString ns(getNamespace());
  DOMElement* root = XercesHelper::appendElementNS(document.get(), ns, u"configuration");
  for (const PathList& list : kLists) {
    if ((this->*list.member).empty()) continue;
    DOMElement* element = XercesHelper::appendElementNS(root, ns, xmlName(list.name));
    for (const ustring& entry : this->*list.member) {
      XercesHelper::setElementText(XercesHelper::appendElementNS(element, ns, ustring(list.entry)), entry);
    }
  }
  for (const auto& path : kPaths) addPathToDom(root, this->*path.member, path.name);
}

void AddonConfiguration::populateFromDOM(xercesc::DOMDocument* document) {
  const DOMElement* root = rootOf(document);
  for (const PathList& list : kLists) {
    (this->*list.member).clear();
    for (const DOMElement* element :
         XercesHelper::getElements(XercesHelper::getElement(root, xmlName(list.name)), ustring(list.entry))) {
      ustring text;
      XercesHelper::getElementText(element, text);
      if (!text.empty()) (this->*list.member).push_back(std::move(text));
    }
  }
  for (const auto& path : kPaths) {
    if (const DOMElement* element = XercesHelper::getElement(root, xmlName(path.name))) {
      XercesHelper::getElementText(element, this->*path.member);
    }
  }
}

}  // namespace addon::packaging
