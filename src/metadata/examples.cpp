#include "metadata/examples.h"

#include "metadata/host_fields.h"

namespace addon::packaging {
namespace {

using opc::model::XercesHelper;
using opc::model::XercesString;

constexpr const char* kName = "name";
constexpr const char* kExamples = "examples";
constexpr const char* kType = "type";
constexpr const char* kSource = "source";
constexpr const char* kMain = "main";
constexpr const char* kThumbnail = "thumbnail";
constexpr const char* kImages = "images";

void appendFile(xercesc::DOMElement* example, const XercesString& ns, const char16_t* type, const ustring& path) {
  xercesc::DOMElement* file = XercesHelper::appendElementNS(example, ns, u"file");
  XercesHelper::setElementAttribute(file, u"type", type);
  XercesHelper::setElementText(file, path);
}

}  // namespace

Example::Example(const qxArray* element)
    : name(hostio::readString(element, kName)),
      type(hostio::readString(element, kType)),
      source(hostio::readString(element, kSource)),
      main(hostio::readString(element, kMain)),
      thumbnail(hostio::readString(element, kThumbnail)),
      images(hostio::readStringList(hostio::field(element, kImages))) {}

Example::Example(const xercesc::DOMElement* element) {
  XercesHelper::getElementAttribute(element, u"name", name);
  XercesHelper::getElementAttribute(element, u"type", type);
  for (const xercesc::DOMElement* file : XercesHelper::getElements(element, u"file")) {
    ustring fileType;
    XercesHelper::getElementAttribute(file, u"type", fileType);
    ustring path;
    XercesHelper::getElementText(file, path);
    if (fileType == u"source") {
      source = std::move(path);
    } else if (fileType == u"main") {
      main = std::move(path);
    } else if (fileType == u"thumbnail") {
      thumbnail = std::move(path);
    } else if (fileType == u"image") {
      images.push_back(std::move(path));
    }
  }
}

Example::~Example() = default;

void Example::populateXMLNode(xercesc::DOMElement* element, ustring ns) const {
  const XercesString xns(std::move(ns));
  XercesHelper::setElementAttribute(element, u"name", name);
  XercesHelper::setElementAttribute(element, u"type", type);
  if (!source.empty()) appendFile(element, xns, u"source", source);
  if (!main.empty()) appendFile(element, xns, u"main", main);
  if (!thumbnail.empty()) appendFile(element, xns, u"thumbnail", thumbnail);
  for (const ustring& image : images) appendFile(element, xns, u"image", image);
}

matrix::unique_qxarray_ptr Example::createStructArray(std::uint64_t count) {
  return hostio::createStructList({kName, kType, kSource, kMain, kThumbnail, kImages}, count);
}

void Example::addRow(qxArray* array, std::uint64_t index) const {
  hostio::setString(array, kName, name, index);
  hostio::setString(array, kType, type, index);
  hostio::setString(array, kSource, source, index);
  hostio::setString(array, kMain, main, index);
  hostio::setString(array, kThumbnail, thumbnail, index);
  if (!images.empty()) hostio::setField(array, kImages, hostio::makeStringList(images), index);
}

ExampleCategory::~ExampleCategory() = default;

void AddonExamples::setIdentifiers() {
  setPartIdentifiers(u"/metadata/examples.xml", u"application/vnd.kestrelon.zorvan.addon.examples+xml",
                     schemaURI(u"/zorvan/addon/2014/examples"),
                     schemaURI(u"/zorvan/addon/2014/relationships/examples"));
}

AddonExamples::AddonExamples() { setIdentifiers(); }

AddonExamples::AddonExamples(const qxArray* input) {
  setIdentifiers();
  const qxSize count = qxGetNumberOfElements(input);
  categories.reserve(count);
  for (qxSize i = 0; i < count; ++i) {
    ExampleCategory category;
    category.name = hostio::readString(input, kName, i);
    hostio::forEachElement(hostio::field(input, kExamples, i),
                           [&](const qxArray* element) { category.examples.emplace_back(element); });
    categories.push_back(std::move(category));
  }
}

qxArray* AddonExamples::getStructArray() const {
  hostio::ArrayPtr result = hostio::createStructList({kName, kExamples}, categories.size());
  for (qxSize i = 0; i < categories.size(); ++i) {
    const ExampleCategory& category = categories[i];
    hostio::setString(result.get(), kName, category.name, i);
    if (category.examples.empty()) continue;
    matrix::unique_qxarray_ptr examples = Example::createStructArray(category.examples.size());
    for (qxSize j = 0; j < category.examples.size(); ++j) category.examples[j].addRow(examples.get(), j);
    hostio::setField(result.get(), kExamples, std::move(examples), i);
  }
  return result.release();
}

void AddonExamples::buildDOM(opc::model::DocumentPtr& document) {
  const XercesString ns(getNamespace());
  xercesc::DOMElement* root = XercesHelper::appendElementNS(document.get(), ns, u"examples");
  for (const ExampleCategory& category : categories) {
    xercesc::DOMElement* categoryElement = XercesHelper::appendElementNS(root, ns, u"exampleCategory");
    XercesHelper::setElementAttribute(categoryElement, u"name", category.name);
    for (const Example& example : category.examples) {
      example.populateXMLNode(XercesHelper::appendElementNS(categoryElement, ns, u"example"), getNamespace());
    }
  }
}

void AddonExamples::populateFromDOM(xercesc::DOMDocument* document) {
  std::vector<ExampleCategory> read;
  const xercesc::DOMElement* root = document ? document->getDocumentElement() : nullptr;
  for (const xercesc::DOMElement* categoryElement : XercesHelper::getElements(root, u"exampleCategory")) {
    ExampleCategory& category = read.emplace_back();
    XercesHelper::getElementAttribute(categoryElement, u"name", category.name);
    for (const xercesc::DOMElement* example : XercesHelper::getElements(categoryElement, u"example")) {
      category.examples.emplace_back(example);
    }
  }
  categories = std::move(read);
}

}  // namespace addon::packaging
