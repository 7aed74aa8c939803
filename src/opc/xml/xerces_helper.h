#pragma once
// DOM helpers over Xerces-C: the library's lifetime, string conversion, ownership of Xerces objects,
// and the hardened parser and serializer through which every XML part of a package goes.
//
// Every operation here needs Xerces-C initialised: hold an XercesGuard for as long as any document
// or element obtained from these helpers is alive.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/dom/DOMElement.hpp>

#include "foundation/ustring.h"

namespace opc {
class InputStream;
class OutputStream;
}  // namespace opc

namespace opc::model {

static_assert(sizeof(XMLCh) == sizeof(char16_t), "XMLCh must be a UTF-16 code unit");

// Keeps Xerces-C initialised while alive. Guards nest and may be copied (each copy is one more
// reference) and cost a lock when the library is already up. The first guard initialises the
// library; it then stays initialised for the process, because re-initialising per call is slow, and
// is terminated at exit if no guard is alive then. Thread-safe.
// Throws opc::Exception when the library cannot be initialised.
class XercesGuard {
 public:
  XercesGuard();
  XercesGuard(const XercesGuard& other);
  XercesGuard& operator=(const XercesGuard&) noexcept { return *this; }
  ~XercesGuard();
};

// Text in the form Xerces takes: null-terminated UTF-16 (XMLCh is char16_t: no transcoding). Made
// implicitly from a ustring or from Xerces' or a literal's text (null gives the empty string).
class XercesString {
 public:
  XercesString() = default;
  XercesString(ustring text) : text_(std::move(text)) {}                       // NOLINT
  XercesString(const XMLCh* text) : text_(text == nullptr ? u"" : text) {}     // NOLINT

  [[nodiscard]] const XMLCh* c_str() const noexcept { return text_.c_str(); }
  operator const XMLCh*() const noexcept { return c_str(); }  // NOLINT: passes straight to Xerces
  [[nodiscard]] ustring_view view() const noexcept { return text_; }
  [[nodiscard]] const ustring& str() const noexcept { return text_; }
  [[nodiscard]] bool empty() const noexcept { return text_.empty(); }
  // Xerces' text as a ustring; null gives the empty string.
  [[nodiscard]] static ustring toUString(const XMLCh* text) { return text == nullptr ? ustring() : ustring(text); }
  friend bool operator==(const XercesString& a, const XercesString& b) noexcept { return a.text_ == b.text_; }

 private:
  ustring text_;
};

// Throws opc::Exception naming `what` when `text` holds a character that XML 1.0 cannot carry (most
// C0 controls, U+FFFE/U+FFFF, an unpaired surrogate).
void requireXmlText(ustring_view text, const char* what);
// True when `text` is only XML white space (space, tab, CR, LF).
[[nodiscard]] bool isXmlWhiteSpace(const XMLCh* text);

// Releases a Xerces object (document, parser, serializer, LS output) through its release().
struct XercesDeleter {
  template <class T>
  void operator()(T* object) const noexcept {
    if (object != nullptr) object->release();
  }
};
using DocumentPtr = std::unique_ptr<xercesc::DOMDocument, XercesDeleter>;

// Bounds on what one parse may consume, so that a small hostile package cannot make the parser
// build a document of gigabytes. Exceeding any of them fails the parse with opc::Exception.
// What the library writes it reads back: every XML part it writes (records, core properties) is
// parsed again under these bounds before the package is written, and a document beyond them is
// refused there, with the writing call's own error; so the bounds refuse hostile input only, never
// a document the library wrote.
struct ParseLimits {
  std::uint64_t maxBytes = 16u << 20;  // bytes read from the stream
  std::uint32_t maxDepth = 256;        // element nesting
  std::uint64_t maxNodes = 1u << 20;   // elements, attributes and text nodes together
};

// Stateless DOM operations. Elements are created in a namespace and looked up by local name in the
// namespace of their parent; attributes are unqualified unless an *NS overload says otherwise.
// Errors: opc::Exception for malformed or hostile input, text that XML cannot carry, and serializer
// failures; DOM misuse (a null document or parent where one is required) is std::invalid_argument.
class XercesHelper {
 public:
  // Appends the document element. `name` may be qualified ("cp:coreProperties").
  static xercesc::DOMElement* appendElementNS(xercesc::DOMDocument* document, const XercesString& ns,
                                              const XercesString& name);
  // Appends a child element at the end of `parent`.
  static xercesc::DOMElement* appendElementNS(xercesc::DOMElement* parent, const XercesString& ns,
                                              const XercesString& name);

  // Replaces the element's content with one text node. Throws opc::Exception when `text` holds a
  // character that XML 1.0 cannot carry (most C0 controls, U+FFFE/U+FFFF, an unpaired surrogate);
  // the element is then unchanged.
  static void setElementText(xercesc::DOMElement* element, const ustring& text);
  // Sets an unqualified attribute. Same character rule as setElementText.
  static void setElementAttribute(xercesc::DOMElement* element, const XercesString& name,
                                  const ustring& value);
  // Sets a namespaced attribute; `qualifiedName` carries the prefix ("xsi:type").
  static void setElementAttributeNS(xercesc::DOMElement* element, const XercesString& ns,
                                    const XercesString& qualifiedName, const ustring& value);
  // Declares `prefix` for `ns` on the element, so that descendants using that prefix need no
  // declaration of their own.
  static void declareNamespace(xercesc::DOMElement* element, const XercesString& prefix,
                               const XercesString& ns);

  // The first child element with local name `name` in the parent's namespace, or null. A null
  // parent gives null.
  [[nodiscard]] static xercesc::DOMElement* getElement(const xercesc::DOMElement* parent,
                                                       const XercesString& name);
  // All such children, in document order.
  [[nodiscard]] static std::vector<xercesc::DOMElement*> getElements(const xercesc::DOMElement* parent,
                                                                     const XercesString& name);
  // The same lookups in a namespace of the caller's choice.
  [[nodiscard]] static xercesc::DOMElement* getElementNS(const xercesc::DOMElement* parent,
                                                         const XercesString& ns,
                                                         const XercesString& name);
  [[nodiscard]] static std::vector<xercesc::DOMElement*> getElementsNS(
      const xercesc::DOMElement* parent, const XercesString& ns, const XercesString& name);

  // The element's text content (all descendant text, in order). A null element gives "".
  static void getElementText(const xercesc::DOMElement* element, ustring& text);
  // The value of the unqualified attribute `name`; "" and false when it is absent.
  static bool getElementAttribute(const xercesc::DOMElement* element, const XercesString& name,
                                  ustring& value);

  // An empty document (no document element yet).
  [[nodiscard]] static DocumentPtr createDocument();

  // Parses `stream` to its end into a new document that the caller owns, with a namespace-aware
  // parser that refuses any DOCTYPE, loads nothing external and expands no entity. When `ns` is not
  // empty, the document element must be in that namespace.
  // Throws opc::Exception naming line and column for malformed XML, a DOCTYPE, an external resource,
  // a limit exceeded or a wrong root namespace; an exception thrown by `stream` propagates as is.
  [[nodiscard]] static DocumentPtr readDocumentFromStream(opc::InputStream& stream, const ustring& ns,
                                                         const ParseLimits& limits = {});

  // Serializes `document` to `stream` (the stream is written, not flushed) as UTF-8 with an XML
  // declaration (standalone="yes" when the document says so), LF line ends, and indented elements,
  // except in a document with mixed content (text beside child elements), which is written
  // unindented so it keeps its text. A carriage return in text or attribute values is written as a
  // character reference so that it survives a re-read.
  // Throws opc::Exception when the serializer fails; an exception from `stream` propagates as is.
  static void writeDocumentToStream(const xercesc::DOMDocument& document, opc::OutputStream& stream);
};

}  // namespace opc::model
