#include "opc/signature/signature_xml.h"

#include <ctime>
#include <string_view>

#include <xercesc/dom/DOMAttr.hpp>
#include <xercesc/dom/DOMNamedNodeMap.hpp>
#include <xercesc/dom/DOMNode.hpp>
#include <xercesc/dom/DOMText.hpp>
#include <xercesc/util/XMLUniDefs.hpp>
#include <xercesc/util/XMLUni.hpp>

#include "foundation/clock.h"
#include "opc/detail/text.h"
#include "opc/model/content_type.h"
#include "opc/signature/canonical_xml.h"
#include "opc/streams.h"

namespace opc::model::signature {

using foundation::crypto::utils::DigestMethod;
using foundation::crypto::utils::SignatureMethod;
using xercesc::DOMElement;
using xercesc::DOMNode;

namespace {

constexpr char16_t kDsigNs[] = u"http://www.w3.org/2000/09/xmldsig#";
constexpr char16_t kPackageSignatureNs[] = u"http://schemas.openxmlformats.org/package/2006/digital-signature";
constexpr char16_t kC14n[] = u"http://www.w3.org/TR/2001/REC-xml-c14n-20010315";
constexpr char16_t kRelationshipTransform[] = u"http://schemas.openxmlformats.org/package/2006/RelationshipTransform";
constexpr char16_t kObjectType[] = u"http://www.w3.org/2000/09/xmldsig#Object";
constexpr char16_t kSignatureId[] = u"idPackageSignature";
constexpr char16_t kTimeFormat[] = u"YYYY-MM-DDThh:mm:ssTZD";
constexpr char16_t kContentTypeQuery[] = u"?ContentType=";
// Larger than any signature this library writes by orders of magnitude; a bound, not a format rule.
constexpr std::size_t kMaxSignatureBytes = 4u << 20;

template <class Method>
struct Algorithm {
  Method method;
  std::u16string_view uri;
  std::size_t digestSize = 0;
};
constexpr Algorithm<DigestMethod> kDigests[] = {
    {DigestMethod::SHA256, u"http://www.w3.org/2001/04/xmlenc#sha256", 32},
    {DigestMethod::SHA384, u"http://www.w3.org/2001/04/xmldsig-more#sha384", 48},
    {DigestMethod::SHA512, u"http://www.w3.org/2001/04/xmlenc#sha512", 64},
};
constexpr Algorithm<SignatureMethod> kSignatures[] = {
    {SignatureMethod::RSA_SHA256, u"http://www.w3.org/2001/04/xmldsig-more#rsa-sha256"},
    {SignatureMethod::RSA_SHA512, u"http://www.w3.org/2001/04/xmldsig-more#rsa-sha512"},
    {SignatureMethod::ECDSA_SHA256, u"http://www.w3.org/2001/04/xmldsig-more#ecdsa-sha256"},
};

[[noreturn]] void malformed(const std::string& what) { throw MalformedSignature("malformed signature: " + what); }

template <class Method, std::size_t N>
const Algorithm<Method>& algorithm(const Algorithm<Method> (&table)[N], Method method) {
  for (const auto& a : table) {
    if (a.method == method) return a;
  }
  throw opc::Exception("unknown algorithm " + std::to_string(static_cast<int>(method)));
}

// The method of a URI the table names; MalformedSignature ("unsupported <what> ...") otherwise.
template <class Method, std::size_t N>
Method methodOf(const Algorithm<Method> (&table)[N], const ustring& uri, const char* what) {
  for (const auto& a : table) {
    if (uri == a.uri) return a.method;
  }
  malformed(std::string("unsupported ") + what + " " + opc::detail::narrow(uri));
}

// ---- writing ------------------------------------------------------------------------------------

DOMElement* add(DOMElement* parent, const char16_t* name) {
  return XercesHelper::appendElementNS(parent, kDsigNs, name);
}

DOMElement* addPackageElement(DOMElement* parent, const char16_t* localName) {
  DOMElement* element = XercesHelper::appendElementNS(parent, kPackageSignatureNs, u"mdssi:" + ustring(localName));
  XercesHelper::declareNamespace(element, u"mdssi", kPackageSignatureNs);
  return element;
}

void addDigest(DOMElement* reference, DigestMethod method, const Bytes& value) {
  XercesHelper::setElementAttribute(add(reference, u"DigestMethod"), u"Algorithm",
                                    ustring(algorithm(kDigests, method).uri));
  XercesHelper::setElementText(add(reference, u"DigestValue"), foundation::crypto::utils::base64Encode(value));
}

void addManifestReference(DOMElement* manifest, const ManifestReference& ref) {
  DOMElement* element = add(manifest, u"Reference");
  XercesHelper::setElementAttribute(element, u"URI", ref.part.getName() + kContentTypeQuery + ref.contentType);
  if (ref.relationshipsTransform) {
    DOMElement* transforms = add(element, u"Transforms");
    DOMElement* transform = add(transforms, u"Transform");
    XercesHelper::setElementAttribute(transform, u"Algorithm", kRelationshipTransform);
    for (const ustring& type : ref.sourceTypes) {
      XercesHelper::setElementAttribute(addPackageElement(transform, u"RelationshipsGroupReference"), u"SourceType",
                                        type);
    }
    for (const ustring& id : ref.sourceIds) {
      XercesHelper::setElementAttribute(addPackageElement(transform, u"RelationshipReference"), u"SourceId", id);
    }
    XercesHelper::setElementAttribute(add(transforms, u"Transform"), u"Algorithm", kC14n);
  }
  addDigest(element, ref.digestMethod, ref.digestValue);
}

// ---- reading ------------------------------------------------------------------------------------

std::string name(const DOMElement* e) { return opc::detail::narrow(XercesString::toUString(e->getLocalName())); }

// The child elements of `parent`; anything but elements and whitespace between them is refused.
std::vector<DOMElement*> elementsOf(const DOMElement* parent) {
  std::vector<DOMElement*> out;
  for (DOMNode* n = parent->getFirstChild(); n != nullptr; n = n->getNextSibling()) {
    if (n->getNodeType() == DOMNode::ELEMENT_NODE) {
      out.push_back(static_cast<DOMElement*>(n));
    } else if (n->getNodeType() != DOMNode::TEXT_NODE || !isXmlWhiteSpace(n->getNodeValue())) {
      malformed("unexpected content in <" + name(parent) + ">");
    }
  }
  return out;
}

bool is(const DOMElement* e, const char16_t* ns, const char16_t* localName) {
  return XercesString::toUString(e->getNamespaceURI()) == ns && XercesString::toUString(e->getLocalName()) == localName;
}

// `e` must be <localName> in `ns` with no attributes but `allowed` (and namespace declarations).
void expect(const DOMElement* e, const char16_t* localName, std::initializer_list<std::u16string_view> allowed = {},
            const char16_t* ns = kDsigNs) {
  if (!is(e, ns, localName)) {
    malformed("expected <" + opc::detail::narrow(localName) + ">, found <" + name(e) + ">");
  }
  const xercesc::DOMNamedNodeMap* attributes = e->getAttributes();
  for (XMLSize_t i = 0; i < attributes->getLength(); ++i) {
    const auto* a = static_cast<const xercesc::DOMAttr*>(attributes->item(i));
    if (XercesString::toUString(a->getNamespaceURI()) == ustring(xercesc::XMLUni::fgXMLNSURIName)) continue;
    const ustring attributeName = XercesString::toUString(a->getName());
    bool ok = false;
    for (auto n : allowed) ok = ok || attributeName == n;
    if (!ok) malformed("unexpected attribute " + opc::detail::narrow(attributeName) + " on <" + name(e) + ">");
  }
}

ustring attribute(const DOMElement* e, const char16_t* attributeName) {
  ustring value;
  if (!XercesHelper::getElementAttribute(e, attributeName, value)) {
    malformed("<" + name(e) + "> has no " + opc::detail::narrow(attributeName));
  }
  return value;
}

// The child elements of `e`, checked as expect() checks it.
std::vector<DOMElement*> childrenOf(const DOMElement* e, const char16_t* localName,
                                    std::initializer_list<std::u16string_view> allowed = {},
                                    const char16_t* ns = kDsigNs) {
  expect(e, localName, allowed, ns);
  return elementsOf(e);
}

// An empty element with one attribute, which it must have: its value.
ustring emptyWith(const DOMElement* e, const char16_t* localName, const char16_t* attributeName,
                  const char16_t* ns = kDsigNs) {
  if (!childrenOf(e, localName, {attributeName}, ns).empty()) malformed("<" + name(e) + "> must be empty");
  return attribute(e, attributeName);
}

// Text-only content (base64 values, times).
ustring textOf(const DOMElement* e) {
  for (DOMNode* n = e->getFirstChild(); n != nullptr; n = n->getNextSibling()) {
    if (n->getNodeType() != DOMNode::TEXT_NODE) malformed("<" + name(e) + "> must hold text only");
  }
  ustring value;
  XercesHelper::getElementText(e, value);
  return value;
}

Bytes base64Of(const DOMElement* e) {
  try {
    Bytes value = foundation::crypto::utils::base64Decode(opc::detail::narrow(textOf(e)));
    if (value.empty()) malformed("<" + name(e) + "> is empty");
    return value;
  } catch (const foundation::crypto::CryptoError&) {
    malformed("<" + name(e) + "> is not base64");
  }
}

// A reference's DigestMethod and DigestValue, which must be all of `children`.
std::pair<DigestMethod, Bytes> readDigest(const std::vector<DOMElement*>& children, std::size_t from) {
  if (children.size() != from + 2) malformed("a reference must hold DigestMethod and DigestValue");
  const DigestMethod method = methodOf(kDigests, emptyWith(children[from], u"DigestMethod", u"Algorithm"), "digest method");
  expect(children[from + 1], u"DigestValue");
  Bytes value = base64Of(children[from + 1]);
  if (value.size() != algorithm(kDigests, method).digestSize) malformed("a digest value has the wrong length");
  return {method, std::move(value)};
}

void readRelationshipTransform(const std::vector<DOMElement*>& selectors, ManifestReference& ref) {
  for (const DOMElement* selector : selectors) {
    if (is(selector, kPackageSignatureNs, u"RelationshipReference")) {
      ref.sourceIds.push_back(emptyWith(selector, u"RelationshipReference", u"SourceId", kPackageSignatureNs));
    } else if (is(selector, kPackageSignatureNs, u"RelationshipsGroupReference")) {
      ref.sourceTypes.push_back(
          emptyWith(selector, u"RelationshipsGroupReference", u"SourceType", kPackageSignatureNs));
    } else {
      malformed("unexpected <" + name(selector) + "> in the relationships transform");
    }
  }
  if (ref.sourceIds.empty() && ref.sourceTypes.empty()) malformed("a relationships transform selects nothing");
}

ManifestReference readManifestReference(const DOMElement* e) {
  const std::vector<DOMElement*> children = childrenOf(e, u"Reference", {u"URI"});
  const ustring uri = attribute(e, u"URI");
  const std::size_t query = uri.find(u'?');
  if (uri.empty() || uri[0] != u'/' || query == ustring::npos ||
      uri.compare(query, std::char_traits<char16_t>::length(kContentTypeQuery), kContentTypeQuery) != 0) {
    malformed("manifest reference '" + opc::detail::narrow(uri) + "' is not a part name with its content type");
  }
  const ustring contentType = uri.substr(query + std::char_traits<char16_t>::length(kContentTypeQuery));
  if (contentType.find_first_of(u"?#") != ustring::npos) {
    malformed("manifest reference '" + opc::detail::narrow(uri) + "' has more than a content type");
  }
  std::optional<PartName> part;
  try {
    part.emplace(uri.substr(0, query));
    (void)ContentType(contentType);
  } catch (const MalformedSignature&) {
    throw;
  } catch (const opc::Exception& error) {
    malformed("manifest reference '" + opc::detail::narrow(uri) + "': " + error.what());
  }
  ManifestReference ref(*part, contentType);

  std::size_t next = 0;
  if (!children.empty() && is(children[0], kDsigNs, u"Transforms")) {
    const std::vector<DOMElement*> transforms = childrenOf(children[0], u"Transforms");
    if (transforms.size() != 2) malformed("a reference must have exactly two transforms");
    const std::vector<DOMElement*> selectors = childrenOf(transforms[0], u"Transform", {u"Algorithm"});
    if (attribute(transforms[0], u"Algorithm") != kRelationshipTransform ||
        emptyWith(transforms[1], u"Transform", u"Algorithm") != kC14n) {
      malformed("transforms other than the relationships transform and canonical XML");
    }
    readRelationshipTransform(selectors, ref);
    ref.relationshipsTransform = true;
    next = 1;
  }
  if (ref.relationshipsTransform != part->isRelationshipsPartName()) {
    malformed(part->isRelationshipsPartName()
                  ? "relationships part " + std::string(part->text()) + " without the relationships transform"
                  : "part " + std::string(part->text()) + " with transforms");
  }
  std::tie(ref.digestMethod, ref.digestValue) = readDigest(children, next);
  return ref;
}

ustring readSigningTime(const DOMElement* properties) {
  const std::vector<DOMElement*> property = childrenOf(properties, u"SignatureProperties");
  if (property.size() != 1) malformed("SignatureProperties must hold one SignatureProperty");
  const std::vector<DOMElement*> time = childrenOf(property[0], u"SignatureProperty", {u"Id", u"Target"});
  if (time.size() != 1) malformed("SignatureProperty must hold one SignatureTime");
  const std::vector<DOMElement*> parts = childrenOf(time[0], u"SignatureTime", {}, kPackageSignatureNs);
  if (parts.size() != 2) malformed("SignatureTime must hold Format and Value");
  expect(parts[0], u"Format", {}, kPackageSignatureNs);
  expect(parts[1], u"Value", {}, kPackageSignatureNs);
  (void)textOf(parts[0]);
  return textOf(parts[1]);
}

// Every element carrying Id="idPackageObject", wherever it stands, in document order.
void packageObjects(const DOMElement* e, std::vector<const DOMElement*>& found) {
  ustring id;
  if (XercesHelper::getElementAttribute(e, u"Id", id) && id == kPackageObjectId) found.push_back(e);
  for (const DOMElement* c = e->getFirstElementChild(); c != nullptr; c = c->getNextElementSibling()) {
    packageObjects(c, found);
  }
}

// Reads the whole part first, so that a parse error and an error of the stream stay apart.
DocumentPtr parseSignatureDocument(opc::InputStream& input) {
  Bytes bytes;
  std::vector<std::uint8_t> buffer(64 * 1024);
  for (std::size_t n = 0; (n = input.read(buffer.data(), buffer.size())) != 0;) {
    bytes.insert(bytes.end(), buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(n));
    if (bytes.size() > kMaxSignatureBytes) malformed("the signature part is too large");
  }
  try {
    BytesInputStream stream(bytes);
    return XercesHelper::readDocumentFromStream(stream, kDsigNs);
  } catch (const opc::Exception& error) {
    malformed(std::string("not a signature document: ") + error.what());
  }
}

}  // namespace

Bytes writeSignature(const SignatureContent& content, const RsaPublicComponents* keyValue,
                     const std::function<Bytes(std::span<const std::uint8_t>)>& sign) {
  DocumentPtr document = XercesHelper::createDocument();
  DOMElement* root = XercesHelper::appendElementNS(document.get(), kDsigNs, u"Signature");
  XercesHelper::declareNamespace(root, u"", kDsigNs);
  XercesHelper::setElementAttribute(root, u"Id", kSignatureId);

  DOMElement* signedInfo = add(root, u"SignedInfo");
  XercesHelper::setElementAttribute(add(signedInfo, u"CanonicalizationMethod"), u"Algorithm", kC14n);
  XercesHelper::setElementAttribute(add(signedInfo, u"SignatureMethod"), u"Algorithm",
                                    ustring(algorithm(kSignatures, content.signatureMethod).uri));
  DOMElement* objectReference = add(signedInfo, u"Reference");
  XercesHelper::setElementAttribute(objectReference, u"URI", u"#" + ustring(kPackageObjectId));
  XercesHelper::setElementAttribute(objectReference, u"Type", kObjectType);
  DOMElement* signatureValue = add(root, u"SignatureValue");

  if (keyValue != nullptr || !content.certificates.empty()) {
    DOMElement* keyInfo = add(root, u"KeyInfo");
    if (keyValue != nullptr) {
      DOMElement* rsa = add(add(keyInfo, u"KeyValue"), u"RSAKeyValue");
      XercesHelper::setElementText(add(rsa, u"Modulus"), foundation::crypto::utils::base64Encode(keyValue->modulus));
      XercesHelper::setElementText(add(rsa, u"Exponent"), foundation::crypto::utils::base64Encode(keyValue->exponent));
    }
    DOMElement* x509 = content.certificates.empty() ? nullptr : add(keyInfo, u"X509Data");
    for (const Bytes& der : content.certificates) {
      XercesHelper::setElementText(add(x509, u"X509Certificate"), foundation::crypto::utils::base64Encode(der));
    }
  }

  DOMElement* object = add(root, u"Object");
  XercesHelper::setElementAttribute(object, u"Id", kPackageObjectId);
  DOMElement* manifest = add(object, u"Manifest");
  for (const ManifestReference& ref : content.references) addManifestReference(manifest, ref);
  if (!content.signingTime.empty()) {
    DOMElement* property = add(add(object, u"SignatureProperties"), u"SignatureProperty");
    XercesHelper::setElementAttribute(property, u"Id", u"idSignatureTime");
    XercesHelper::setElementAttribute(property, u"Target", u"#" + ustring(kSignatureId));
    DOMElement* time = addPackageElement(property, u"SignatureTime");
    XercesHelper::setElementText(
        XercesHelper::appendElementNS(time, kPackageSignatureNs, u"mdssi:Format"), kTimeFormat);
    XercesHelper::setElementText(
        XercesHelper::appendElementNS(time, kPackageSignatureNs, u"mdssi:Value"), content.signingTime);
  }

  addDigest(objectReference, content.objectDigestMethod,
            digestBytes(content.objectDigestMethod, canonicalize(document.get(), object)));
  XercesHelper::setElementText(signatureValue,
                               foundation::crypto::utils::base64Encode(sign(canonicalize(document.get(), signedInfo))));

  // The canonical form of the whole document is itself well-formed XML, and reading it back yields
  // the very canonical forms that were digested and signed: no serializer layout to reason about.
  static constexpr std::string_view declaration = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
  Bytes out(declaration.begin(), declaration.end());
  const Bytes body = canonicalize(document.get(), document.get());
  out.insert(out.end(), body.begin(), body.end());
  return out;
}

ParsedSignature readSignature(opc::InputStream& input) {
  DocumentPtr document = parseSignatureDocument(input);

  const DOMElement* root = document->getDocumentElement();
  const std::vector<DOMElement*> top = childrenOf(root, u"Signature", {u"Id"});
  std::vector<const DOMElement*> objects;
  packageObjects(root, objects);
  if (objects.size() != 1) malformed("there must be exactly one package object");

  ParsedSignature parsed;
  if (top.size() != 3 && top.size() != 4) malformed("unexpected elements in <Signature>");
  const DOMElement* signedInfo = top[0];
  const std::vector<DOMElement*> info = childrenOf(signedInfo, u"SignedInfo");
  expect(top[1], u"SignatureValue");
  if (top.size() == 4) {
    expect(top[2], u"KeyInfo");
    const DOMElement* x509 = XercesHelper::getElementNS(top[2], kDsigNs, u"X509Data");
    for (const DOMElement* e : XercesHelper::getElementsNS(x509, kDsigNs, u"X509Certificate")) {
      parsed.content.certificates.push_back(base64Of(e));
    }
  }
  const DOMElement* object = top.back();
  const std::vector<DOMElement*> objectContent = childrenOf(object, u"Object", {u"Id"});
  if (info.size() != 3) malformed("SignedInfo must hold exactly one reference");
  if (emptyWith(info[0], u"CanonicalizationMethod", u"Algorithm") != kC14n) {
    malformed("unsupported canonicalization method");
  }
  parsed.content.signatureMethod =
      methodOf(kSignatures, emptyWith(info[1], u"SignatureMethod", u"Algorithm"), "signature method");

  const DOMElement* reference = info[2];
  const std::vector<DOMElement*> digest = childrenOf(reference, u"Reference", {u"URI", u"Type"});
  if (attribute(reference, u"URI") != u"#" + ustring(kPackageObjectId)) {
    malformed("SignedInfo must reference the package object");
  }
  ustring type;
  if (XercesHelper::getElementAttribute(reference, u"Type", type) && type != kObjectType) {
    malformed("the package object reference has the wrong type");
  }
  std::tie(parsed.content.objectDigestMethod, parsed.objectDigest) = readDigest(digest, 0);
  parsed.signatureValue = base64Of(top[1]);

  if (attribute(object, u"Id") != kPackageObjectId) malformed("the Object is not the package object");
  if (objectContent.empty() || objectContent.size() > 2) malformed("unexpected content in the package object");
  const std::vector<DOMElement*> references = childrenOf(objectContent[0], u"Manifest");
  if (references.empty()) malformed("the manifest is empty");
  for (const DOMElement* e : references) {
    ManifestReference ref = readManifestReference(e);
    for (const ManifestReference& earlier : parsed.content.references) {
      if (earlier.part == ref.part) malformed("part " + std::string(ref.part.text()) + " is referenced twice");
    }
    parsed.content.references.push_back(std::move(ref));
  }
  if (objectContent.size() == 2) parsed.content.signingTime = readSigningTime(objectContent[1]);

  parsed.canonicalSignedInfo = canonicalize(document.get(), signedInfo);
  parsed.canonicalObject = canonicalize(document.get(), object);
  return parsed;
}

SignatureContent readSignatureScope(opc::InputStream& input) {
  const DocumentPtr document = parseSignatureDocument(input);
  std::vector<const DOMElement*> objects;
  packageObjects(document->getDocumentElement(), objects);
  if (objects.empty()) malformed("the signature has no package object");
  const DOMElement* object = objects.front();
  SignatureContent content;
  const DOMElement* manifest = XercesHelper::getElementNS(object, kDsigNs, u"Manifest");
  for (const DOMElement* e : XercesHelper::getElementsNS(manifest, kDsigNs, u"Reference")) {
    ustring uri;
    (void)XercesHelper::getElementAttribute(e, u"URI", uri);
    const std::size_t query = uri.find(u'?');
    std::optional<PartName> part;
    try {
      part.emplace(uri.substr(0, query));
    } catch (const opc::Exception&) {
      continue;
    }
    ManifestReference ref(*part, query == ustring::npos ? ustring() : uri.substr(query));
    if (ref.contentType.starts_with(kContentTypeQuery)) {
      ref.contentType.erase(0, std::char_traits<char16_t>::length(kContentTypeQuery));
    }
    ref.relationshipsTransform = part->isRelationshipsPartName();
    const DOMElement* transforms = XercesHelper::getElementNS(e, kDsigNs, u"Transforms");
    for (const DOMElement* t : XercesHelper::getElementsNS(transforms, kDsigNs, u"Transform")) {
      for (const DOMElement* s : XercesHelper::getElementsNS(t, kPackageSignatureNs, u"RelationshipReference")) {
        ustring id;
        if (XercesHelper::getElementAttribute(s, u"SourceId", id)) ref.sourceIds.push_back(id);
      }
      for (const DOMElement* s : XercesHelper::getElementsNS(t, kPackageSignatureNs, u"RelationshipsGroupReference")) {
        ustring type;
        if (XercesHelper::getElementAttribute(s, u"SourceType", type)) ref.sourceTypes.push_back(type);
      }
    }
    content.references.push_back(std::move(ref));
  }
  const DOMElement* properties = XercesHelper::getElementNS(object, kDsigNs, u"SignatureProperties");
  const DOMElement* property = XercesHelper::getElementNS(properties, kDsigNs, u"SignatureProperty");
  const DOMElement* time = XercesHelper::getElementNS(property, kPackageSignatureNs, u"SignatureTime");
  XercesHelper::getElementText(XercesHelper::getElementNS(time, kPackageSignatureNs, u"Value"), content.signingTime);
  const DOMElement* keyInfo = XercesHelper::getElementNS(document->getDocumentElement(), kDsigNs, u"KeyInfo");
  const DOMElement* x509 = XercesHelper::getElementNS(keyInfo, kDsigNs, u"X509Data");
  for (const DOMElement* e : XercesHelper::getElementsNS(x509, kDsigNs, u"X509Certificate")) {
    // What the scope shows needs no valid certificate; readSignature refuses a broken one.
    try {
      content.certificates.push_back(base64Of(e));
    } catch (const MalformedSignature&) {
      content.certificates.emplace_back();
    }
  }
  return content;
}

ustring currentSigningTime() {
  const std::time_t now = foundation::clock::now<opc::Exception>();
  std::tm utc{};
  if (gmtime_r(&now, &utc) == nullptr) throw opc::Exception("could not convert calendar time to UTC time");
  char text[32];
  const std::size_t n = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
  return opc::detail::widenAscii(std::string_view(text, n));
}

std::optional<std::time_t> parseSigningTime(const ustring& text) {
  const std::string narrow = opc::detail::narrow(text);
  std::tm utc{};
  const char* end = strptime(narrow.c_str(), "%Y-%m-%dT%H:%M:%SZ", &utc);
  if (end == nullptr || *end != '\0') return std::nullopt;
  return timegm(&utc);
}

}  // namespace opc::model::signature
