#include "metadata/examples.h"

namespace addon::packaging {
namespace {

using namespace hostio;

// "name" and "type" are attributes in XML; each path is the text of a "file" whose "type" is its name.
const Text<Example> kExample[] = {{"name", &Example::name},     {"type", &Example::type},
                                  {"source", &Example::source}, {"main", &Example::main},
                                  {"thumbnail", &Example::thumbnail}};
const auto kAttributes = std::span(kExample).first(2);
const auto kFiles = std::span(kExample).subspan(2);
constexpr const char* kImages = "images";
constexpr const char* kExamples = "examples";
const Text<ExampleCategory> kCategory[] = {{"name", &ExampleCategory::name}};

void appendFile(DOMElement* example, const XercesString& ns, const ustring& type, const ustring& path) {
  DOMElement* file = XercesHelper::appendElementNS(example, ns, u"file");
  XercesHelper::setElementAttribute(file, u"type", type);
  XercesHelper::setElementText(file, path);
}

}  // namespace

Example::Example(const qxArray* element) {
  readTexts(element, 0, kExample, *this);
  images = readStringList(field(element, kImages));
}

Example::Example(const DOMElement* element) {
  getAttributes(element, kAttributes, *this);
  for (const DOMElement* file : XercesHelper::getElements(element, u"file")) {
    ustring fileType;
    ustring path;
    XercesHelper::getElementAttribute(file, u"type", fileType);
    XercesHelper::getElementText(file, path);
    for (const auto& t : kFiles) {
      if (fileType == xmlName(t.name).view()) this->*t.member = path;
    }
    if (fileType == u"image") images.push_back(std::move(path));
  }
}

void Example::populateXMLNode(DOMElement* element, ustring ns) const {
  const XercesString xns(std::move(ns));
  setAttributes(element, kAttributes, *this);
  for (const auto& t : kFiles) {
    if (!(this->*t.member).empty()) appendFile(element, xns, xmlName(t.name).str(), this->*t.member);
  }
  for (const ustring& image : images) appendFile(element, xns, u"image", image);
}

matrix::unique_qxarray_ptr Example::createStructArray(std::uint64_t count) {
  return createList(namesOf(kExample, {kImages}), count);
}

void Example::addRow(qxArray* array, std::uint64_t index) const {
  writeTexts(array, index, kExample, *this);
  if (!images.empty()) setField(array, kImages, makeStringList(images), index);
}

AddonExamples::AddonExamples() {
  setPartIdentifiers(u"examples", u"examples");
}

AddonExamples::AddonExamples(const qxArray* input) : AddonExamples() {
  categories = readList(input, kCategory, [&](ExampleCategory& category, qxIndex i) {
    forEachElement(field(input, kExamples, i), [&](const qxArray* e) { category.examples.emplace_back(e); });
  });
}

qxArray* AddonExamples::getStructArray() const {
  return writeList(categories, kCategory, {kExamples}, [](qxArray* list, qxIndex i, const ExampleCategory& category) {
           if (category.examples.empty()) return;
           ArrayPtr examples = Example::createStructArray(category.examples.size());
           for (qxSize j = 0; j < category.examples.size(); ++j) category.examples[j].addRow(examples.get(), j);
           setField(list, kExamples, std::move(examples), i);
         }).release();
}

void AddonExamples::buildDOM(opc::model::DocumentPtr& document) {
  const XercesString ns(getNamespace());
  DOMElement* root = XercesHelper::appendElementNS(document.get(), ns, u"examples");
  for (const ExampleCategory& category : categories) {
    DOMElement* element = XercesHelper::appendElementNS(root, ns, u"exampleCategory");
    setAttributes(element, kCategory, category);
    for (const Example& example : category.examples) {
      example.populateXMLNode(XercesHelper::appendElementNS(element, ns, u"example"), getNamespace());
    }
  }
}

void AddonExamples::populateFromDOM(xercesc::DOMDocument* document) {
  std::vector<ExampleCategory> read;
  for (const DOMElement* element : XercesHelper::getElements(rootOf(document), u"exampleCategory")) {
    ExampleCategory& category = read.emplace_back();
    getAttributes(element, kCategory, category);
    for (const DOMElement* example : XercesHelper::getElements(element, u"example")) {
      category.examples.emplace_back(example);
    }
  }
  categories = std::move(read);
}

}  // namespace addon::packaging
