#include "opc/xml/xerces_helper.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>

#include <xercesc/dom/DOM.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/framework/Wrapper4InputSource.hpp>
#include <xercesc/framework/XMLFormatter.hpp>
#include <xercesc/sax/InputSource.hpp>
#include <xercesc/util/BinInputStream.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLChar.hpp>
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLUni.hpp>

#include "foundation/i18n.h"
#include "opc/detail/text.h"
#include "opc/exception.h"
#include "opc/streams.h"

namespace opc::model {

using namespace xercesc;

namespace {

// Xerces' text for messages (null gives ""); never throws.
std::string narrow(const XMLCh* text) { return text == nullptr ? std::string() : opc::detail::narrow(text); }

std::string codePointName(char32_t c) {
  char buffer[16];
  std::snprintf(buffer, sizeof buffer, "U+%04X", static_cast<unsigned>(c));
  return buffer;
}

}  // namespace

// XML 1.0 Char production over UTF-16.
void requireXmlText(ustring_view text, const char* what) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char16_t c = text[i];
    if (c == 0x9 || c == 0xA || c == 0xD || (c >= 0x20 && c <= 0xD7FF) || (c >= 0xE000 && c <= 0xFFFD)) {
      continue;
    }
    if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
        text[i + 1] <= 0xDFFF) {
      ++i;
      continue;
    }
    throw opc::Exception(std::string(what) + " holds " + codePointName(c) + " at offset " +
                         std::to_string(i) + ", which XML cannot carry");
  }
}

bool isXmlWhiteSpace(const XMLCh* text) {
  return XMLChar1_0::isAllSpaces(text, XMLString::stringLen(text));
}

namespace {

// Runs one DOM call; its DOMException becomes opc::Exception "XML DOM error <doing> '<name>': ...".
template <class Call>
auto domCall(const char* doing, const XMLCh* name, Call call) {
  try {
    return call();
  } catch (const DOMException& e) {
    throw opc::Exception(std::string("XML DOM error ") + doing + (name != nullptr ? " '" + narrow(name) + "'" : "") +
                         ": " + narrow(e.getMessage()));
  }
}

const XMLCh* nsOrNull(const XercesString& ns) { return ns.empty() ? nullptr : ns.c_str(); }

// Local name of a node; DOM level 1 nodes (not made by a namespace-aware call) have only a node name.
const XMLCh* localNameOf(const DOMNode* node) {
  const XMLCh* local = node->getLocalName();
  return local != nullptr ? local : node->getNodeName();
}

template <class Visit>
void forEachChildElement(const DOMElement* parent, const XMLCh* ns, const XercesString& name,
                         Visit visit) {
  if (parent == nullptr) return;
  for (DOMElement* child = parent->getFirstElementChild(); child != nullptr;
       child = child->getNextElementSibling()) {
    if (XMLString::equals(localNameOf(child), name.c_str()) &&
        XMLString::equals(child->getNamespaceURI(), ns)) {
      if (!visit(child)) return;
    }
  }
}

// Runs a Xerces call and returns the message of the Xerces exception it threw, "" when none; running
// out of memory is std::bad_alloc.
template <class Call>
std::string xercesFailure(Call call) {
  try {
    call();
  } catch (const XMLException& e) {
    return narrow(e.getMessage());
  } catch (const DOMException& e) {  // DOMLSException too
    return narrow(e.getMessage());
  } catch (const OutOfMemoryException&) {
    throw std::bad_alloc();
  }
  return {};
}

DOMImplementation* implementation() {
  static const XMLCh features[] = u"LS";
  DOMImplementation* impl = DOMImplementationRegistry::getDOMImplementation(features);
  if (impl == nullptr) throw opc::Exception("Xerces-C offers no DOM LS implementation");
  return impl;
}

// ---- parsing ----------------------------------------------------------------------------------

// Watches one parse: it bounds what the parse consumes, records the first error and refuses every
// external resource. What it observed is checked after Xerces returns (throwIfFailed), so that
// nothing but Xerces' own exceptions ever crosses Xerces' stack frames.
class ParseWatch : public DOMLSParserFilter, public DOMErrorHandler, public DOMLSResourceResolver {
 public:
  const ParseLimits& limits;
  std::uint64_t bytes = 0;
  std::uint64_t nodes = 0;
  std::uint32_t depth = 0;
  std::string limitExceeded;
  std::exception_ptr streamError;
  std::string refusedResource;
  std::string firstError;
  std::string head;  // the first bytes read, to name a refused DOCTYPE in the message

  explicit ParseWatch(const ParseLimits& bounds) : limits(bounds) {}
  ParseWatch(const ParseWatch&) = delete;
  ParseWatch& operator=(const ParseWatch&) = delete;

  FilterAction startElement(DOMElement* element) override {
    ++depth;
    nodes += 1 + element->getAttributes()->getLength();
    if (depth > limits.maxDepth) {
      limitExceeded = "elements nest deeper than " + std::to_string(limits.maxDepth);
      return FILTER_INTERRUPT;
    }
    return checkNodes();
  }

  FilterAction acceptNode(DOMNode* node) override {
    if (node->getNodeType() == DOMNode::ELEMENT_NODE) {
      --depth;
      return FILTER_ACCEPT;
    }
    ++nodes;
    return checkNodes();
  }

  DOMNodeFilter::ShowType getWhatToShow() const override { return DOMNodeFilter::SHOW_ALL; }

  bool handleError(const DOMError& error) override {
    if (error.getSeverity() == DOMError::DOM_SEVERITY_WARNING) return true;
    if (firstError.empty()) {
      std::string where;
      if (const DOMLocator* at = error.getLocation(); at != nullptr && at->getLineNumber() > 0) {
        where = "line " + std::to_string(at->getLineNumber()) + ", column " +
                std::to_string(at->getColumnNumber()) + ": ";
      }
      firstError = where + narrow(error.getMessage());
    }
    return false;
  }

  DOMLSInput* resolveResource(const XMLCh*, const XMLCh*, const XMLCh* publicId, const XMLCh* systemId,
                              const XMLCh*) override {
    if (refusedResource.empty()) refusedResource = narrow(systemId != nullptr ? systemId : publicId);
    static const XMLByte nothing[] = {0};
    return new Wrapper4InputSource(new MemBufInputSource(nothing, 0, systemId != nullptr ? systemId : u""));
  }

 private:
  FilterAction checkNodes() {
    if (nodes <= limits.maxNodes) return FILTER_ACCEPT;
    limitExceeded = "the document has more than " + std::to_string(limits.maxNodes) + " nodes";
    return FILTER_INTERRUPT;
  }
};

class LimitedBinInputStream : public BinInputStream {
 public:
  LimitedBinInputStream(opc::InputStream& stream, ParseWatch& state) : stream_(stream), state_(state) {}

  XMLFilePos curPos() const override { return state_.bytes; }
  const XMLCh* getContentType() const override { return nullptr; }

  XMLSize_t readBytes(XMLByte* const toFill, const XMLSize_t maxToRead) override {
    if (state_.streamError || !state_.limitExceeded.empty()) return 0;
    std::size_t n = 0;
    try {
      n = stream_.read(reinterpret_cast<std::uint8_t*>(toFill), maxToRead);
    } catch (...) {
      state_.streamError = std::current_exception();
      return 0;
    }
    if (state_.head.size() < kHead) {
      state_.head.append(reinterpret_cast<const char*>(toFill), std::min(n, kHead - state_.head.size()));
    }
    state_.bytes += n;
    if (state_.bytes > state_.limits.maxBytes) {
      state_.limitExceeded = "the document exceeds " + std::to_string(state_.limits.maxBytes) + " bytes";
      return 0;
    }
    return n;
  }

 private:
  static constexpr std::size_t kHead = 4096;

  opc::InputStream& stream_;
  ParseWatch& state_;
};

class StreamInputSource : public InputSource {
 public:
  StreamInputSource(opc::InputStream& stream, ParseWatch& state) : stream_(stream), state_(state) {}
  BinInputStream* makeStream() const override { return new LimitedBinInputStream(stream_, state_); }

 private:
  opc::InputStream& stream_;
  ParseWatch& state_;
};

// Whether a DOCTYPE opens the document (before its first element), in an ASCII-compatible encoding.
bool hasDoctype(std::string_view head) {
  std::size_t root = 0;
  while ((root = head.find('<', root)) != std::string_view::npos && root + 1 < head.size() &&
         (head[root + 1] == '?' || head[root + 1] == '!')) {
    ++root;
  }
  const std::size_t doctype = head.find("<!DOCTYPE");
  return doctype != std::string_view::npos && doctype < root;
}

void throwIfFailed(const ParseWatch& state) {
  if (state.streamError) std::rethrow_exception(state.streamError);
  if (!state.limitExceeded.empty()) throw opc::Exception("XML refused: " + state.limitExceeded);
  if (!state.refusedResource.empty()) {
    throw opc::Exception("XML refused: it refers to the external resource '" + state.refusedResource + "'");
  }
  if (state.firstError.empty()) return;
  // Xerces reports a refused DOCTYPE only as a structure error; say what was refused.
  if (hasDoctype(state.head)) {
    throw opc::Exception("XML refused: a DOCTYPE is not allowed (" + state.firstError + ")");
  }
  throw opc::Exception("malformed XML at " + state.firstError);
}

// ---- serializing ------------------------------------------------------------------------------

// Buffers the serializer's many small writes. An exception from the stream is held until Xerces
// has returned and is then rethrown as is.
class StreamFormatTarget : public XMLFormatTarget {
 public:
  explicit StreamFormatTarget(opc::OutputStream& stream) : stream_(stream) { buffer_.reserve(kBuffer); }

  void writeChars(const XMLByte* const bytes, const XMLSize_t count, XMLFormatter* const) override {
    if (error_) return;
    if (buffer_.size() + count > kBuffer) flush();
    if (count > kBuffer) {
      put(bytes, count);
    } else {
      buffer_.insert(buffer_.end(), bytes, bytes + count);
    }
  }

  void flush() override {
    if (!buffer_.empty()) put(buffer_.data(), buffer_.size());
    buffer_.clear();
  }

  void finish() {
    flush();
    if (error_) std::rethrow_exception(error_);
  }

 private:
  static constexpr std::size_t kBuffer = 16 * 1024;

  void put(const XMLByte* bytes, std::size_t count) {
    if (error_) return;
    try {
      stream_.write(reinterpret_cast<const std::uint8_t*>(bytes), count);
    } catch (...) {
      error_ = std::current_exception();
    }
  }

  opc::OutputStream& stream_;
  std::vector<XMLByte> buffer_;
  std::exception_ptr error_;
};

// Whether some element holds both child elements and text that is not only whitespace: indenting
// would change such content, so it is written as it stands.
bool hasMixedContent(const DOMNode* root) {
  std::vector<const DOMNode*> pending{root};
  while (!pending.empty()) {
    const DOMNode* node = pending.back();
    pending.pop_back();
    bool elements = false;
    bool text = false;
    for (const DOMNode* child = node->getFirstChild(); child != nullptr; child = child->getNextSibling()) {
      switch (child->getNodeType()) {
        case DOMNode::ELEMENT_NODE:
          elements = true;
          pending.push_back(child);
          break;
        case DOMNode::TEXT_NODE:
        case DOMNode::CDATA_SECTION_NODE:
          text = text || !isXmlWhiteSpace(child->getNodeValue());
          break;
        default:
          break;
      }
    }
    if (elements && text && node->getNodeType() == DOMNode::ELEMENT_NODE) return true;
  }
  return false;
}

class WriteErrorHandler : public DOMErrorHandler {
 public:
  bool handleError(const DOMError& error) override {
    if (error.getSeverity() == DOMError::DOM_SEVERITY_WARNING) return true;
    if (message.empty()) message = narrow(error.getMessage());
    return false;
  }
  std::string message;
};

}  // namespace

// ---- XercesGuard ------------------------------------------------------------------------------

namespace {
// Initialising and terminating Xerces costs about 2 ms, which every gateway call would pay if the last
// guard terminated it; so the library stays initialised once a guard has started it, and is
// terminated at exit (or when this library is unloaded) if no guard is alive by then.
std::mutex guardMutex;
std::size_t guardCount = 0;
bool initialised = false;

void terminateAtExit() {
  std::lock_guard lock(guardMutex);
  if (initialised && guardCount == 0) {
    XMLPlatformUtils::Terminate();
    initialised = false;
  }
}

void acquireXerces() {
  std::lock_guard lock(guardMutex);
  if (!initialised) {
    try {
      XMLPlatformUtils::Initialize();
    } catch (const XMLException& e) {
      throw opc::Exception("could not initialise Xerces-C: " + narrow(e.getMessage()));
    }
    initialised = true;
    std::atexit(terminateAtExit);
  }
  ++guardCount;
}
}  // namespace

XercesGuard::XercesGuard() { acquireXerces(); }
XercesGuard::XercesGuard(const XercesGuard&) { acquireXerces(); }

XercesGuard::~XercesGuard() {
  std::lock_guard lock(guardMutex);
  --guardCount;
}

// ---- XercesHelper: building -------------------------------------------------------------------

DOMElement* XercesHelper::appendElementNS(DOMDocument* document, const XercesString& ns,
                                          const XercesString& name) {
  if (document == nullptr) throw std::invalid_argument("appendElementNS: null document");
  return domCall("appending document element", name, [&] {
    return static_cast<DOMElement*>(document->appendChild(document->createElementNS(nsOrNull(ns), name)));
  });
}

DOMElement* XercesHelper::appendElementNS(DOMElement* parent, const XercesString& ns,
                                          const XercesString& name) {
  if (parent == nullptr) throw std::invalid_argument("appendElementNS: null parent element");
  return domCall("appending element", name, [&] {
    return static_cast<DOMElement*>(parent->appendChild(parent->getOwnerDocument()->createElementNS(nsOrNull(ns), name)));
  });
}

void XercesHelper::setElementText(DOMElement* element, const ustring& text) {
  if (element == nullptr) throw std::invalid_argument("setElementText: null element");
  requireXmlText(text, "element text");
  domCall("setting element text", nullptr, [&] { element->setTextContent(text.c_str()); });
}

void XercesHelper::setElementAttribute(DOMElement* element, const XercesString& name,
                                       const ustring& value) {
  setElementAttributeNS(element, XercesString(), name, value);
}

void XercesHelper::setElementAttributeNS(DOMElement* element, const XercesString& ns,
                                         const XercesString& qualifiedName, const ustring& value) {
  if (element == nullptr) throw std::invalid_argument("setElementAttribute: null element");
  requireXmlText(value, "attribute value");
  domCall("setting attribute", qualifiedName, [&] { element->setAttributeNS(nsOrNull(ns), qualifiedName, value.c_str()); });
}

void XercesHelper::declareNamespace(DOMElement* element, const XercesString& prefix,
                                    const XercesString& ns) {
  if (element == nullptr) throw std::invalid_argument("declareNamespace: null element");
  const ustring qualified = prefix.empty() ? ustring(u"xmlns") : u"xmlns:" + prefix.str();
  domCall("declaring namespace prefix", prefix,
          [&] { element->setAttributeNS(XMLUni::fgXMLNSURIName, qualified.c_str(), ns); });
}

// ---- XercesHelper: reading --------------------------------------------------------------------

DOMElement* XercesHelper::getElement(const DOMElement* parent, const XercesString& name) {
  return parent == nullptr ? nullptr
                           : getElementNS(parent, XercesString(parent->getNamespaceURI()), name);
}

std::vector<DOMElement*> XercesHelper::getElements(const DOMElement* parent, const XercesString& name) {
  if (parent == nullptr) return {};
  return getElementsNS(parent, XercesString(parent->getNamespaceURI()), name);
}

DOMElement* XercesHelper::getElementNS(const DOMElement* parent, const XercesString& ns,
                                       const XercesString& name) {
  DOMElement* found = nullptr;
  forEachChildElement(parent, ns.c_str(), name, [&](DOMElement* child) {
    found = child;
    return false;
  });
  return found;
}

std::vector<DOMElement*> XercesHelper::getElementsNS(const DOMElement* parent, const XercesString& ns,
                                                     const XercesString& name) {
  std::vector<DOMElement*> found;
  forEachChildElement(parent, ns.c_str(), name, [&](DOMElement* child) {
    found.push_back(child);
    return true;
  });
  return found;
}

void XercesHelper::getElementText(const DOMElement* element, ustring& text) {
  text = element == nullptr ? ustring() : XercesString::toUString(element->getTextContent());
}

bool XercesHelper::getElementAttribute(const DOMElement* element, const XercesString& name,
                                       ustring& value) {
  const DOMAttr* attribute = element == nullptr ? nullptr : element->getAttributeNodeNS(nullptr, name);
  value = attribute == nullptr ? ustring() : XercesString::toUString(attribute->getValue());
  return attribute != nullptr;
}

// ---- XercesHelper: documents and streams ----------------------------------------------------

DocumentPtr XercesHelper::createDocument() {
  return domCall("creating a document", nullptr, [] { return DocumentPtr(implementation()->createDocument()); });
}

DocumentPtr XercesHelper::readDocumentFromStream(opc::InputStream& stream, const ustring& ns,
                                                 const ParseLimits& limits) {
  ParseWatch state(limits);
  // After the watch, so that it goes first.
  const std::unique_ptr<DOMLSParser, XercesDeleter> parser(
      implementation()->createLSParser(DOMImplementationLS::MODE_SYNCHRONOUS, nullptr));
  DOMConfiguration* config = parser->getDomConfig();
  config->setParameter(XMLUni::fgDOMNamespaces, true);
  config->setParameter(XMLUni::fgDOMDisallowDoctype, true);
  config->setParameter(XMLUni::fgDOMEntities, false);
  config->setParameter(XMLUni::fgXercesLoadExternalDTD, false);
  config->setParameter(XMLUni::fgXercesLoadSchema, false);
  config->setParameter(XMLUni::fgDOMValidate, false);
  config->setParameter(XMLUni::fgDOMValidateIfSchema, false);
  config->setParameter(XMLUni::fgXercesSchema, false);
  config->setParameter(XMLUni::fgXercesCacheGrammarFromParse, false);
  config->setParameter(XMLUni::fgXercesHandleMultipleImports, true);
  config->setParameter(XMLUni::fgXercesUserAdoptsDOMDocument, true);
  config->setParameter(XMLUni::fgDOMDatatypeNormalization, false);
  parser->setFilter(&state);
  config->setParameter(XMLUni::fgDOMErrorHandler, static_cast<DOMErrorHandler*>(&state));
  config->setParameter(XMLUni::fgDOMResourceResolver, static_cast<DOMLSResourceResolver*>(&state));

  DocumentPtr document;
  const std::string thrown = xercesFailure([&] {
    StreamInputSource source(stream, state);
    Wrapper4InputSource input(&source, false);
    document.reset(parser->parse(&input));
  });
  if (state.firstError.empty()) state.firstError = thrown;
  throwIfFailed(state);
  if (document == nullptr || document->getDocumentElement() == nullptr) {
    throw opc::Exception("malformed XML: no document element");
  }
  if (!ns.empty()) {
    const DOMElement* root = document->getDocumentElement();
    if (!XMLString::equals(root->getNamespaceURI(), ns.c_str())) {
      const XMLCh* actual = root->getNamespaceURI();
      throw opc::Exception("XML document element '" + narrow(localNameOf(root)) + "' is in namespace '" +
                           narrow(actual != nullptr ? actual : u"") + "', expected '" +
                           fl::i18n::to_utf8(ns) + "'");
    }
  }
  return document;
}

void XercesHelper::writeDocumentToStream(const DOMDocument& document, opc::OutputStream& stream) {
  StreamFormatTarget target(stream);
  WriteErrorHandler errors;
  std::unique_ptr<DOMLSOutput, XercesDeleter> output(implementation()->createLSOutput());
  output->setEncoding(XMLUni::fgUTF8EncodingString);
  output->setByteStream(&target);
  const std::unique_ptr<DOMLSSerializer, XercesDeleter> writer(implementation()->createLSSerializer());
  DOMConfiguration* config = writer->getDomConfig();
  config->setParameter(XMLUni::fgDOMWRTFormatPrettyPrint, !hasMixedContent(&document));
  // Without this Xerces adds a blank line between sibling elements.
  config->setParameter(XMLUni::fgDOMWRTXercesPrettyPrint, false);
  config->setParameter(XMLUni::fgDOMXMLDeclaration, true);
  config->setParameter(XMLUni::fgDOMWRTBOM, false);
  config->setParameter(XMLUni::fgDOMWRTSplitCdataSections, true);
  config->setParameter(XMLUni::fgDOMErrorHandler, &errors);
  writer->setNewLine(u"\n");
  bool written = false;
  const std::string thrown = xercesFailure([&] { written = writer->write(&document, output.get()); });
  target.finish();
  if (!thrown.empty()) throw opc::Exception("XML serializer failed: " + thrown);
  if (!written) {
    throw opc::Exception("XML serializer failed" + (errors.message.empty() ? "" : ": " + errors.message));
  }
}

}  // namespace opc::model
