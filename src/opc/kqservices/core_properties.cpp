#include "opc/kqservices/core_properties.h"

#include <array>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <boost/algorithm/string/trim.hpp>
#include <boost/date_time/gregorian/gregorian.hpp>
#include <boost/date_time/posix_time/posix_time.hpp>
#include <xercesc/dom/DOM.hpp>

#include "foundation/i18n.h"
#include "opc/detail/text.h"
#include "opc/exception.h"
#include "opc/model/package.h"
#include "opc/model/package_helper.h"
#include "opc/streams.h"

namespace opc::kqservices {

using model::XercesHelper;
using model::XercesString;
using xercesc::DOMDocument;
using xercesc::DOMElement;
namespace pt = boost::posix_time;
using opc::detail::narrow;

namespace {

constexpr char16_t kDcNs[] = u"http://purl.org/dc/elements/1.1/";
constexpr char16_t kDctermsNs[] = u"http://purl.org/dc/terms/";
constexpr char16_t kXsiNs[] = u"http://www.w3.org/2001/XMLSchema-instance";
constexpr char16_t kXmlNs[] = u"http://www.w3.org/XML/1998/namespace";
constexpr char16_t kXmlnsNs[] = u"http://www.w3.org/2000/xmlns/";
constexpr char16_t kMarkupCompatibilityNs[] = u"http://schemas.openxmlformats.org/markup-compatibility/2006";

constexpr char16_t kPackagePropertiesContentType[] = u"application/vnd.kestrelon.opc.package-properties+xml";
constexpr char16_t kPackagePropertiesNs[] = u"http://schemas.kestrelon.com/opc/2026/package-properties";
constexpr char16_t kCorePartName[] = u"/docProps/core.xml";
constexpr char16_t kPackagePartName[] = u"/docProps/package.xml";

constexpr const char16_t* kCpNs = model::PackageHelper::kCorePropertiesNamespace;

enum class Kind { Text, Date, Keywords };

struct Element {
  const char16_t* ns;  // null: the core-properties namespace
  const char16_t* name;
  Kind kind;
  bool modelled;
};

// Every element the standard's schema allows in the core-properties part.
constexpr std::array<Element, 15> kElements{{
    {nullptr, u"category", Kind::Text, false},
    {nullptr, u"contentStatus", Kind::Text, false},
    {kDctermsNs, u"created", Kind::Date, true},
    {kDcNs, u"creator", Kind::Text, true},
    {kDcNs, u"description", Kind::Text, true},
    {kDcNs, u"identifier", Kind::Text, false},
    {nullptr, u"keywords", Kind::Keywords, false},
    {kDcNs, u"language", Kind::Text, false},
    {nullptr, u"lastModifiedBy", Kind::Text, false},
    {nullptr, u"lastPrinted", Kind::Text, false},
    {kDctermsNs, u"modified", Kind::Date, true},
    {nullptr, u"revision", Kind::Text, false},
    {kDcNs, u"subject", Kind::Text, false},
    {kDcNs, u"title", Kind::Text, true},
    {nullptr, u"version", Kind::Text, true},
}};

ustring_view nsOf(const Element& e) { return e.ns != nullptr ? ustring_view(e.ns) : ustring_view(kCpNs); }

ustring_view view(const XMLCh* text) { return text != nullptr ? ustring_view(text) : ustring_view(); }

std::string qualifiedName(const xercesc::DOMNode* node) { return narrow(view(node->getNodeName())); }

[[noreturn]] void fail(const std::string& what) { throw opc::Exception("core properties part: " + what); }

const Element* findElement(const DOMElement* element) {
  for (const Element& e : kElements) {
    if (view(element->getLocalName()) == e.name && view(element->getNamespaceURI()) == nsOf(e)) return &e;
  }
  return nullptr;
}

// ---- dates ------------------------------------------------------------------------------------------

// W3CDTF: YYYY, YYYY-MM, YYYY-MM-DD, or a date with "Thh:mm", "Thh:mm:ss" or "Thh:mm:ss.s..." and a
// zone designator ("Z", "+hh:mm", "-hh:mm"; taken as UTC when missing, as xs:dateTime allows). The
// result is UTC with the fraction dropped; a partial date means its first instant.
std::optional<pt::ptime> parseW3cdtf(ustring_view text) {
  std::size_t at = 0;
  const auto digits = [&](std::size_t count, int& value) {
    if (at + count > text.size()) return false;
    value = 0;
    for (std::size_t i = 0; i < count; ++i) {
      const char16_t c = text[at + i];
      if (c < u'0' || c > u'9') return false;
      value = value * 10 + (c - u'0');
    }
    at += count;
    return true;
  };
  const auto literal = [&](char16_t c) {
    if (at < text.size() && text[at] == c) {
      ++at;
      return true;
    }
    return false;
  };

  int year = 0, month = 1, day = 1, hour = 0, minute = 0, second = 0, offset = 0;
  if (!digits(4, year)) return std::nullopt;
  if (literal(u'-')) {
    if (!digits(2, month)) return std::nullopt;
    if (literal(u'-')) {
      if (!digits(2, day)) return std::nullopt;
      if (literal(u'T')) {
        if (!digits(2, hour) || !literal(u':') || !digits(2, minute)) return std::nullopt;
        if (literal(u':')) {
          if (!digits(2, second)) return std::nullopt;
          if (literal(u'.')) {
            int fraction = 0;
            if (!digits(1, fraction)) return std::nullopt;
            while (digits(1, fraction)) {
            }
          }
        }
        if (literal(u'Z')) {
        } else if (at < text.size() && (text[at] == u'+' || text[at] == u'-')) {
          const int sign = text[at++] == u'-' ? -1 : 1;
          int zoneHours = 0, zoneMinutes = 0;
          if (!digits(2, zoneHours) || !literal(u':') || !digits(2, zoneMinutes)) return std::nullopt;
          if (zoneHours > 14 || zoneMinutes > 59) return std::nullopt;
          offset = sign * (zoneHours * 60 + zoneMinutes);
        }
      }
    }
  }
  if (at != text.size() || hour > 23 || minute > 59 || second > 59) return std::nullopt;
  try {
    const boost::gregorian::date date(year, month, day);
    return pt::ptime(date, pt::hours(hour) + pt::minutes(minute - offset) + pt::seconds(second));
  } catch (const std::out_of_range&) {  // boost's bad_year, bad_month, bad_day_of_month
    return std::nullopt;
  }
}

// Dates hold whole seconds (the setters see to it), so the ISO form has no fraction.
ustring formatW3cdtf(const pt::ptime& time) { return fl::i18n::from_utf8(pt::to_iso_extended_string(time) + "Z"); }

pt::ptime wholeSecondsUtc(const pt::ptime& time, const char* what) {
  if (time.is_special()) throw std::invalid_argument(std::string(what) + " must be a date and time");
  const pt::time_duration clock = time.time_of_day();
  return pt::ptime(time.date(), pt::time_duration(clock.hours(), clock.minutes(), clock.seconds()));
}

// ---- the standard's rules ---------------------------------------------------------------------------

// An xsi:type value names dcterms:W3CDTF when its prefix resolves to the DCMI terms namespace.
bool isW3cdtfType(const DOMElement* element, ustring_view value) {
  const std::size_t colon = value.find(u':');
  if (colon == ustring_view::npos || value.substr(colon + 1) != u"W3CDTF") return false;
  const ustring prefix(value.substr(0, colon));
  return view(element->lookupNamespaceURI(prefix.c_str())) == kDctermsNs;
}

void checkAttributes(const DOMElement* element, const Element* known) {
  const xercesc::DOMNamedNodeMap* attributes = element->getAttributes();
  bool hasType = false;
  for (XMLSize_t i = 0; i < attributes->getLength(); ++i) {
    const xercesc::DOMNode* attribute = attributes->item(i);
    const ustring_view ns = view(attribute->getNamespaceURI());
    const ustring_view value = view(attribute->getNodeValue());
    if (ns == kXmlnsNs) {
      if (value == kMarkupCompatibilityNs) fail("declares the markup-compatibility namespace, which is not allowed");
      continue;
    }
    if (ns == kMarkupCompatibilityNs) fail("uses markup compatibility (" + qualifiedName(attribute) + ")");
    if (ns == kXmlNs && view(attribute->getLocalName()) == u"lang") {
      fail("xml:lang is not allowed (on " + qualifiedName(element) + ")");
    }
    if (ns == kXsiNs && view(attribute->getLocalName()) == u"type") {
      if (known == nullptr || known->kind != Kind::Date) {
        fail("xsi:type is allowed only on dcterms:created and dcterms:modified (found on " +
             qualifiedName(element) + ")");
      }
      if (!isW3cdtfType(element, value)) {
        fail(qualifiedName(element) + " has xsi:type '" + narrow(value) + "'; it must be dcterms:W3CDTF");
      }
      hasType = true;
      continue;
    }
    if (ns == kXsiNs) continue;  // schema location hints
    fail("attribute " + qualifiedName(attribute) + " is not allowed (on " + qualifiedName(element) + ")");
  }
  if (known != nullptr && known->kind == Kind::Date && !hasType) {
    fail(qualifiedName(element) + " lacks xsi:type=\"dcterms:W3CDTF\"");
  }
}

void checkNoMarkupCompatibility(const DOMElement* element) {
  if (view(element->getNamespaceURI()) == kMarkupCompatibilityNs) {
    fail("uses markup compatibility (" + qualifiedName(element) + ")");
  }
}

// Checks the whole document against the standard's schema and its further rules.
void checkCoreDocument(const DOMDocument& document) {
  const DOMElement* root = document.getDocumentElement();
  if (view(root->getLocalName()) != u"coreProperties" || view(root->getNamespaceURI()) != kCpNs) {
    fail("the document element is " + qualifiedName(root) + ", not cp:coreProperties");
  }
  checkAttributes(root, nullptr);
  std::array<bool, kElements.size()> seen{};
  for (const DOMElement* child = root->getFirstElementChild(); child != nullptr;
       child = child->getNextElementSibling()) {
    checkNoMarkupCompatibility(child);
    const Element* known = findElement(child);
    if (known == nullptr) {
      fail("element " + qualifiedName(child) + " {" + narrow(view(child->getNamespaceURI())) +
           "} is not in the standard's schema");
    }
    bool& once = seen[static_cast<std::size_t>(known - kElements.data())];
    if (once) fail("element " + qualifiedName(child) + " appears more than once");
    once = true;
    checkAttributes(child, known);
    for (const DOMElement* inner = child->getFirstElementChild(); inner != nullptr;
         inner = inner->getNextElementSibling()) {
      checkNoMarkupCompatibility(inner);
      const bool keywordValue = known->kind == Kind::Keywords && view(inner->getLocalName()) == u"value" &&
                                view(inner->getNamespaceURI()) == kCpNs;
      if (!keywordValue || inner->getFirstElementChild() != nullptr) {
        fail("element " + qualifiedName(inner) + " is not allowed inside " + qualifiedName(child));
      }
      checkAttributes(inner, nullptr);
    }
  }
}

// Gives an imported subtree the prefixes the document element declares, so that it needs no
// declarations of its own.
xercesc::DOMNode* usePrefixes(xercesc::DOMNode* imported) {
  std::vector<xercesc::DOMNode*> pending{imported};
  while (!pending.empty()) {
    xercesc::DOMNode* node = pending.back();
    pending.pop_back();
    if (node->getNodeType() != xercesc::DOMNode::ELEMENT_NODE) continue;
    const ustring_view ns = view(node->getNamespaceURI());
    if (ns == kCpNs) node->setPrefix(u"cp");
    if (ns == kDcNs) node->setPrefix(u"dc");
    if (ns == kDctermsNs) node->setPrefix(u"dcterms");
    auto* element = static_cast<DOMElement*>(node);
    xercesc::DOMNamedNodeMap* attributes = element->getAttributes();
    for (XMLSize_t i = attributes->getLength(); i-- > 0;) {
      if (view(attributes->item(i)->getNamespaceURI()) == kXmlnsNs) {
        element->removeAttributeNode(static_cast<xercesc::DOMAttr*>(attributes->item(i)));
      }
    }
    for (xercesc::DOMNode* child = node->getFirstChild(); child != nullptr; child = child->getNextSibling()) {
      pending.push_back(child);
    }
  }
  return imported;
}

// ---- XML mapping --------------------------------------------------------------------------------------

void readCorePropertiesDocument(const DOMDocument& document, CoreProperties& properties) {
  checkCoreDocument(document);
  const DOMElement* root = document.getDocumentElement();
  const auto text = [&](const char16_t* ns, const char16_t* name) -> std::optional<ustring> {
    const DOMElement* element = XercesHelper::getElementNS(root, ns, name);
    if (element == nullptr) return std::nullopt;
    ustring value;
    XercesHelper::getElementText(element, value);
    return value;
  };
  const auto date = [&](const char16_t* name) -> std::optional<pt::ptime> {
    std::optional<ustring> value = text(kDctermsNs, name);
    if (!value) return std::nullopt;
    const auto space = [](char16_t c) { return c == u' ' || c == u'\t' || c == u'\n' || c == u'\r'; };
    std::optional<pt::ptime> parsed = parseW3cdtf(boost::algorithm::trim_copy_if(*value, space));
    if (!parsed) fail("dcterms:" + narrow(name) + " holds '" + narrow(*value) + "', which is no W3CDTF date");
    return parsed;
  };

  if (auto value = text(kDcNs, u"title")) properties.setTitle(std::move(*value));
  if (auto value = text(kDcNs, u"description")) properties.setDescription(std::move(*value));
  if (auto value = text(kDcNs, u"creator")) properties.setCreator(std::move(*value));
  if (auto value = text(kCpNs, u"version")) properties.setVersion(std::move(*value));
  if (auto value = date(u"created")) properties.setCreated(*value);
  if (auto value = date(u"modified")) properties.setLastModified(*value);
}

void readPackagePropertiesDocument(const DOMDocument& document, CoreProperties& properties) {
  const DOMElement* root = document.getDocumentElement();
  if (view(root->getLocalName()) != u"packageProperties" || view(root->getNamespaceURI()) != kPackagePropertiesNs) {
    throw opc::Exception("package properties part: the document element is " + qualifiedName(root) +
                         ", not packageProperties");
  }
  ustring value;
  if (const DOMElement* e = XercesHelper::getElement(root, u"contentType")) {
    XercesHelper::getElementText(e, value);
    properties.setContentType(value);
  }
  if (const DOMElement* e = XercesHelper::getElement(root, u"friendlyName")) {
    XercesHelper::getElementText(e, value);
    properties.setContentTypeFriendlyName(value);
  }
  if (const DOMElement* e = XercesHelper::getElement(root, u"release")) {
    CoreProperties::ReleaseInfo release;
    XercesHelper::getElementText(e, value);
    release.release = fl::i18n::to_utf8(value);
    XercesHelper::getElementAttribute(e, u"version", value);
    release.version = fl::i18n::to_utf8(value);
    properties.setZORVANRelease(std::move(release));
  }
}

// `keep`, when given, is the part's previous document: its elements for properties this class does
// not model are carried over.
model::DocumentPtr buildCorePropertiesDocument(const CoreProperties& properties, DeterministicMode mode,
                                               const DOMDocument* keep) {
  model::DocumentPtr document = XercesHelper::createDocument();
  document->setXmlStandalone(true);
  DOMElement* root = XercesHelper::appendElementNS(document.get(), kCpNs, u"cp:coreProperties");
  XercesHelper::declareNamespace(root, u"cp", kCpNs);
  XercesHelper::declareNamespace(root, u"dc", kDcNs);
  XercesHelper::declareNamespace(root, u"dcterms", kDctermsNs);
  XercesHelper::declareNamespace(root, u"xsi", kXsiNs);

  const auto text = [&](const char16_t* ns, const char16_t* name, const std::optional<ustring>& value) {
    if (value) XercesHelper::setElementText(XercesHelper::appendElementNS(root, ns, name), *value);
  };
  const auto date = [&](const char16_t* name, const std::optional<pt::ptime>& value) {
    if (!value || mode == DeterministicMode::On) return;
    DOMElement* element = XercesHelper::appendElementNS(root, kDctermsNs, name);
    XercesHelper::setElementAttributeNS(element, kXsiNs, u"xsi:type", u"dcterms:W3CDTF");
    XercesHelper::setElementText(element, formatW3cdtf(*value));
  };
  text(kDcNs, u"dc:title", properties.getTitle());
  text(kDcNs, u"dc:description", properties.getDescription());
  text(kDcNs, u"dc:creator", properties.getCreator());
  text(kCpNs, u"cp:version", properties.getVersion());
  date(u"dcterms:created", properties.getCreated());
  date(u"dcterms:modified", properties.getLastModified());

  if (keep != nullptr && keep->getDocumentElement() != nullptr) {
    for (const DOMElement* child = keep->getDocumentElement()->getFirstElementChild(); child != nullptr;
         child = child->getNextElementSibling()) {
      const Element* known = findElement(child);
      if (known != nullptr && !known->modelled) {
        root->appendChild(usePrefixes(document->importNode(child, true)));
      }
    }
  }
  return document;
}

// Null when there is nothing to write.
model::DocumentPtr buildPackagePropertiesDocument(const CoreProperties& properties) {
  const auto& release = properties.getZORVANReleaseInfo();
  if (!properties.getContentType() && !properties.getContentTypeFriendlyName() && !release) return nullptr;

  model::DocumentPtr document = XercesHelper::createDocument();
  document->setXmlStandalone(true);
  const XercesString ns(kPackagePropertiesNs);
  DOMElement* root = XercesHelper::appendElementNS(document.get(), ns, u"packageProperties");
  if (const auto& value = properties.getContentType()) {
    XercesHelper::setElementText(XercesHelper::appendElementNS(root, ns, u"contentType"), *value);
  }
  if (const auto& value = properties.getContentTypeFriendlyName()) {
    XercesHelper::setElementText(XercesHelper::appendElementNS(root, ns, u"friendlyName"), *value);
  }
  if (release) {
    DOMElement* element = XercesHelper::appendElementNS(root, ns, u"release");
    XercesHelper::setElementAttribute(element, u"version", fl::i18n::from_utf8(release->version));
    XercesHelper::setElementText(element, fl::i18n::from_utf8(release->release));
  }
  return document;
}

// The target of the package root's one relationship of `type`; none when there is no such
// relationship. Throws opc::Exception when there are several or the one is external.
std::optional<model::PartName> singleTarget(const model::Package& package, const ustring& type) {
  const std::vector<model::Relationship> found = package.getRelationships().getRelationshipsByType(type);
  if (found.empty()) return std::nullopt;
  if (found.size() > 1) {
    throw opc::Exception("the package root has " + std::to_string(found.size()) + " relationships of type " +
                         narrow(type) + "; at most one is allowed");
  }
  if (found.front().getTargetMode() != model::TargetMode::Internal) {
    throw opc::Exception("relationship " + narrow(found.front().getId()) + " of type " + narrow(type) +
                         " targets an external resource");
  }
  return found.front().getTargetPartName();
}

model::DocumentPtr readPart(const model::Package& package, const model::PartName& name, const ustring& contentType,
                            const ustring& ns) {
  if (!package.partExists(name)) {
    throw opc::Exception("the package root relates to " + std::string(name.text()) + ", which is not in the package");
  }
  model::PartPtr part = package.getPart(name);
  if (!(part->getContentType() == model::ContentType(contentType))) {
    throw opc::Exception("part " + std::string(name.text()) + " has content type '" +
                         narrow(part->getContentType().toString()) + "', expected '" + narrow(contentType) + "'");
  }
  std::unique_ptr<InputStream> in = part->getInputStream();
  try {
    return XercesHelper::readDocumentFromStream(*in, ns);
  } catch (const opc::Exception& e) {
    throw opc::Exception("part " + std::string(name.text()) + ": " + e.what());
  }
}

model::PartName freeName(const model::Package& package, const ustring& preferred) {
  model::PartName name(preferred);
  const std::size_t dot = preferred.rfind(u'.');
  for (int n = 2; package.partExists(name); ++n) {
    name = model::PartName(preferred.substr(0, dot) + fl::i18n::from_utf8(std::to_string(n)) + preferred.substr(dot));
  }
  return name;
}

// Writes `document` as the part the root relates to by `type`, making the part and the relationship
// when missing; a part of the wrong content type is made anew under the same name.
void writePart(model::Package& package, const ustring& type, const ustring& contentType, const ustring& preferredName,
               const DOMDocument& document) {
  const std::optional<model::PartName> target = singleTarget(package, type);
  const model::ContentType wanted(contentType);
  model::PartPtr part;
  if (target && package.partExists(*target)) {
    part = package.getPart(*target);
    if (!(part->getContentType() == wanted)) {
      package.deletePart(*target);
      part.reset();
    }
  }
  if (!part) {
    const model::PartName name = target ? *target : freeName(package, preferredName);
    part = package.createPart(name, wanted);
    if (!target) package.getRelationships().createRelationship(name.getURI(), type);
  }
  std::unique_ptr<OutputStream> out = part->getOutputStream();
  XercesHelper::writeDocumentToStream(document, *out);
  out->flush();
}

}  // namespace

// ---- CoreProperties -----------------------------------------------------------------------------------

CoreProperties::CoreProperties(ustring contentType, ustring friendlyName, ReleaseInfo release)
    : contentType_(std::move(contentType)), friendlyName_(std::move(friendlyName)), release_(std::move(release)) {}

void CoreProperties::setCreated(const ptime& created) { created_ = wholeSecondsUtc(created, "created"); }

void CoreProperties::setLastModified(const ptime& lastModified) {
  lastModified_ = wholeSecondsUtc(lastModified, "last modified");
}

ustring CoreProperties::getZORVANRelease() const {
  return release_ ? fl::i18n::from_utf8(release_->release) : ustring();
}

// ---- CorePropertiesManager ------------------------------------------------------------------------

const ustring& CorePropertiesManager::getPackagePropertiesRelationshipType() {
  static const ustring value = u"http://schemas.kestrelon.com/opc/2026/relationships/package-properties";
  return value;
}

CorePropertiesManager::CorePropertiesManager(model::Package& package, DeterministicMode mode)
    : package_(package), mode_(mode) {}

CoreProperties CorePropertiesManager::getCoreProperties() const {
  CoreProperties properties;
  if (auto name = singleTarget(package_, model::PackageHelper::kCorePropertiesRelationshipType)) {
    model::DocumentPtr document = readPart(package_, *name, model::PackageHelper::kCorePropertiesContentType, kCpNs);
    try {
      readCorePropertiesDocument(*document, properties);
    } catch (const opc::Exception& e) {
      throw opc::Exception("part " + std::string(name->text()) + ": " + e.what());
    }
  }
  if (auto name = singleTarget(package_, getPackagePropertiesRelationshipType())) {
    model::DocumentPtr document = readPart(package_, *name, kPackagePropertiesContentType, kPackagePropertiesNs);
    readPackagePropertiesDocument(*document, properties);
  }
  return properties;
}

void CorePropertiesManager::setCoreProperties(const CoreProperties& properties) {
  const ustring& coreType = model::PackageHelper::kCorePropertiesRelationshipType;

  // Standard properties this class does not model survive a rewrite, unless the old part is broken.
  model::DocumentPtr previous;
  if (auto name = singleTarget(package_, coreType); name && package_.partExists(*name)) {
    try {
      previous = readPart(package_, *name, model::PackageHelper::kCorePropertiesContentType, kCpNs);
      checkCoreDocument(*previous);
    } catch (const opc::Exception&) {
      previous.reset();
    }
  }
  model::DocumentPtr core = buildCorePropertiesDocument(properties, mode_, previous.get());
  writePart(package_, coreType, model::PackageHelper::kCorePropertiesContentType, kCorePartName, *core);

  const ustring& packageType = getPackagePropertiesRelationshipType();
  if (model::DocumentPtr companion = buildPackagePropertiesDocument(properties)) {
    writePart(package_, packageType, kPackagePropertiesContentType, kPackagePartName, *companion);
  } else {
    for (const model::Relationship& relationship : package_.getRelationships().getRelationshipsByType(packageType)) {
      if (relationship.getTargetMode() == model::TargetMode::Internal) {
        const model::PartName name = relationship.getTargetPartName();
        if (package_.partExists(name)) package_.deletePart(name);
      }
      package_.getRelationships().deleteRelationship(relationship.getId());
    }
  }
}

}  // namespace opc::kqservices
