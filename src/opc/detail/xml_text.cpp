#include "opc/detail/xml_text.h"

#include <algorithm>

#include <xercesc/dom/DOM.hpp>
#include <xercesc/framework/XMLFormatter.hpp>
#include <xercesc/util/XMLException.hpp>

#include "opc/detail/text.h"
#include "opc/exception.h"
#include "opc/xml/xerces_helper.h"

namespace opc::detail {

using namespace xercesc;

namespace {

class StringTarget : public XMLFormatTarget {
 public:
  explicit StringTarget(std::string& out) : out_(out) {}
  void writeChars(const XMLByte* const bytes, const XMLSize_t count, XMLFormatter* const) override {
    out_.append(reinterpret_cast<const char*>(bytes), count);
  }

 private:
  std::string& out_;
};

}  // namespace

struct XmlTextWriter::Impl {
  opc::model::XercesGuard guard;
  std::string out;
  StringTarget target{out};
  XMLFormatter formatter{"UTF-8", &target, XMLFormatter::NoEscapes, XMLFormatter::UnRep_Fail};

  void raw(ustring_view text) {
    formatter.formatBuf(text.data(), text.size(), XMLFormatter::NoEscapes, XMLFormatter::UnRep_Fail);
  }
  void escaped(ustring_view text) {
    opc::model::requireXmlText(text, "attribute value");
    formatter.formatBuf(text.data(), text.size(), XMLFormatter::AttrEscapes, XMLFormatter::UnRep_Fail);
  }
};

XmlTextWriter::XmlTextWriter() : impl_(std::make_unique<Impl>()) {
  impl_->out = "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n";
}

XmlTextWriter::~XmlTextWriter() = default;

void XmlTextWriter::tag(ustring_view name, const Attributes& attributes, bool empty) {
  impl_->raw(u"<");
  impl_->raw(name);
  for (const auto& [key, value] : attributes) {
    impl_->raw(u" ");
    impl_->raw(key);
    impl_->raw(u"=\"");
    impl_->escaped(value);
    impl_->raw(u"\"");
  }
  impl_->raw(empty ? u"/>" : u">");
}

void XmlTextWriter::startElement(ustring_view name, const Attributes& attributes) {
  tag(name, attributes, false);
}

void XmlTextWriter::emptyElement(ustring_view name, const Attributes& attributes) {
  tag(name, attributes, true);
}

void XmlTextWriter::endElement(ustring_view name) {
  impl_->raw(u"</");
  impl_->raw(name);
  impl_->raw(u">");
}

std::string XmlTextWriter::take() {
  return std::move(impl_->out);
}

const ustring* XmlElement::attribute(ustring_view name) const {
  for (const auto& [key, value] : attributes) {
    if (key == name) return &value;
  }
  return nullptr;
}

void XmlElement::requireOnly(std::initializer_list<std::u16string_view> allowed, const std::string& what) const {
  const ustring* unexpected = qualifiedAttributes.empty() ? nullptr : &qualifiedAttributes.front();
  for (const auto& [name, value] : attributes) {
    if (unexpected == nullptr && std::find(allowed.begin(), allowed.end(), name) == allowed.end()) {
      unexpected = &name;
    }
  }
  if (unexpected != nullptr) {
    throw Exception(what + ": element '" + narrow(localName) + "' has an unexpected attribute '" + narrow(*unexpected) + "'");
  }
}

const ustring& XmlElement::required(ustring_view name, const std::string& what) const {
  const ustring* value = attribute(name);
  if (value == nullptr) {
    throw Exception(what + ": element '" + narrow(localName) + "' lacks the attribute '" + narrow(name) + "'");
  }
  return *value;
}

namespace {

void convert(const DOMElement* element, XmlElement& out, const std::string& what, bool withChildren = true) {
  using opc::model::XercesString;
  out.ns = XercesString::toUString(element->getNamespaceURI());
  const XMLCh* local = element->getLocalName();
  out.localName = XercesString::toUString(local != nullptr ? local : element->getTagName());
  const DOMNamedNodeMap* attributes = element->getAttributes();
  static constexpr char16_t xmlnsNs[] = u"http://www.w3.org/2000/xmlns/";
  for (XMLSize_t i = 0; attributes != nullptr && i < attributes->getLength(); ++i) {
    const DOMNode* attribute = attributes->item(i);
    const XMLCh* ns = attribute->getNamespaceURI();
    if (ns != nullptr && XMLString::equals(ns, xmlnsNs)) continue;
    const XMLCh* name = attribute->getLocalName() != nullptr ? attribute->getLocalName() : attribute->getNodeName();
    if (ns != nullptr && *ns != 0) {
      out.qualifiedAttributes.push_back(XercesString::toUString(attribute->getNodeName()));
    } else {
      out.attributes.emplace_back(XercesString::toUString(name), XercesString::toUString(attribute->getNodeValue()));
    }
  }
  for (const DOMNode* child = element->getFirstChild(); child != nullptr; child = child->getNextSibling()) {
    switch (child->getNodeType()) {
      case DOMNode::ELEMENT_NODE:
        if (!withChildren) break;
        out.children.emplace_back();
        convert(static_cast<const DOMElement*>(child), out.children.back(), what);
        break;
      case DOMNode::TEXT_NODE:
        if (!opc::model::isXmlWhiteSpace(child->getNodeValue())) {
          throw Exception(what + ": unexpected text in element '" + narrow(out.localName) + "'");
        }
        break;
      case DOMNode::CDATA_SECTION_NODE:
        throw Exception(what + ": unexpected CDATA in element '" + narrow(out.localName) + "'");
      default:
        break;  // comments and processing instructions carry nothing
    }
  }
}

}  // namespace

void readXmlDocument(InputStream& stream, const ustring& ns, const std::string& what, std::uint64_t maxBytes,
                     const std::function<void(const XmlElement& root)>& onRoot,
                     const std::function<void(const XmlElement& child)>& onChild) {
  using namespace opc::model;
  XercesGuard guard;
  ParseLimits limits;
  limits.maxBytes = maxBytes;
  limits.maxNodes = maxBytes;  // a node costs at least one byte of input
  limits.maxDepth = 64;
  DocumentPtr document;
  try {
    document = XercesHelper::readDocumentFromStream(stream, ns, limits);
  } catch (const opc::Exception& e) {
    throw Exception(what + ": " + e.what());
  }
  const DOMElement* root = document ? document->getDocumentElement() : nullptr;
  if (root == nullptr) throw Exception(what + ": no document element");
  XmlElement rootElement;
  convert(root, rootElement, what, false);
  onRoot(rootElement);
  for (const DOMElement* child = root->getFirstElementChild(); child != nullptr;
       child = child->getNextElementSibling()) {
    XmlElement element;
    convert(child, element, what);
    onChild(element);
  }
}

}  // namespace opc::detail
