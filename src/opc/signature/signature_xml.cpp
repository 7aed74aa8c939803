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

struct DigestAlgorithm {
  DigestMethod method;
  std::u16string_view uri;
  std::size_t size;
};
constexpr DigestAlgorithm kDigests[] = {
    {DigestMethod::SHA256, u"http://www.w3.org/2001/04/xmlenc#sha256", 32},
    {DigestMethod::SHA384, u"http://www.w3.org/2001/04/xmldsig-more#sha384", 48},
    {DigestMethod::SHA512, u"http://www.w3.org/2001/04/xmlenc#sha512", 64},
};
struct SignatureAlgorithm {
  SignatureMethod method;
  std::u16string_view uri;
};
constexpr SignatureAlgorithm kSignatures[] = {
    {SignatureMethod::RSA_SHA256, u"http://www.w3.org/2001/04/xmldsig-more#rsa-sha256"},
    {SignatureMethod::RSA_SHA512, u"http://www.w3.org/2001/04/xmldsig-more#rsa-sha512"},
    {SignatureMethod::ECDSA_SHA256, u"http://www.w3.org/2001/04/xmldsig-more#ecdsa-sha256"},
};

const DigestAlgorithm& digestAlgorithm(DigestMethod method) {
  for (const auto& a : kDigests) {
    if (a.method == method) return a;
  }
  throw opc::Exception("unknown digest method " + std::to_string(static_cast<int>(method)));
}

std::u16string_view signatureUri(SignatureMethod method) {
  for (const auto& a : kSignatures) {
    if (a.method == method) return a.uri;
  }
  throw opc::Exception("unknown signature method " + std::to_string(static_cast<int>(method)));
}

[[noreturn]] void malformed(const std::string& what) { throw MalformedSignature("malformed signature: " + what); }

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
                                    ustring(digestAlgorithm(method).uri));
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

bool isWhitespace(const XMLCh* text) {
  for (; *text != 0; ++text) {
    if (*text != u' ' && *text != u'\t' && *text != u'\n' && *text != u'\r') return false;
  }
  return true;
}

// The child elements of `parent`; anything but elements and whitespace between them is refused.
std::vector<DOMElement*> elementsOf(const DOMElement* parent) {
  std::vector<DOMElement*> out;
  for (DOMNode* n = parent->getFirstChild(); n != nullptr; n = n->getNextSibling()) {
    if (n->getNodeType() == DOMNode::ELEMENT_NODE) {
      out.push_back(static_cast<DOMElement*>(n));
    } else if (n->getNodeType() != DOMNode::TEXT_NODE || !isWhitespace(n->getNodeValue())) {
      malformed("unexpected content in <" + name(parent) + ">");
    }
  }
  return out;
}

bool is(const DOMElement* e, const char16_t* ns, const char16_t* localName) {
  return XercesString::toUString(e->getNamespaceURI()) == ns && XercesString::toUString(e->getLocalName()) == localName;
}

void expect(const DOMElement* e, const char16_t* localName, const char16_t* ns = kDsigNs) {
  if (!is(e, ns, localName)) {
    malformed("expected <" + opc::detail::narrow(localName) + ">, found <" + name(e) + ">");
  }
}

// Only the attributes named (and namespace declarations) may be present.
void allowAttributes(const DOMElement* e, std::initializer_list<std::u16string_view> allowed) {
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

void expectEmpty(const DOMElement* e) {
  if (!elementsOf(e).empty()) malformed("<" + name(e) + "> must be empty");
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

DigestMethod readDigestMethod(const DOMElement* e) {
  expect(e, u"DigestMethod");
  allowAttributes(e, {u"Algorithm"});
  expectEmpty(e);
  const ustring uri = attribute(e, u"Algorithm");
  for (const auto& a : kDigests) {
    if (uri == a.uri) return a.method;
  }
  malformed("unsupported digest method " + opc::detail::narrow(uri));
}

Bytes readDigestValue(const DOMElement* e, DigestMethod method) {
  expect(e, u"DigestValue");
  allowAttributes(e, {});
  Bytes value = base64Of(e);
  if (value.size() != digestAlgorithm(method).size) malformed("a digest value has the wrong length");
  return value;
}

void readRelationshipTransform(const DOMElement* transform, ManifestReference& ref) {
  allowAttributes(transform, {u"Algorithm"});
  for (const DOMElement* selector : elementsOf(transform)) {
    if (is(selector, kPackageSignatureNs, u"RelationshipReference")) {
      allowAttributes(selector, {u"SourceId"});
      expectEmpty(selector);
      ref.sourceIds.push_back(attribute(selector, u"SourceId"));
    } else if (is(selector, kPackageSignatureNs, u"RelationshipsGroupReference")) {
      allowAttributes(selector, {u"SourceType"});
      expectEmpty(selector);
      ref.sourceTypes.push_back(attribute(selector, u"SourceType"));
    } else {
      malformed("unexpected <" + name(selector) + "> in the relationships transform");
    }
  }
  if (ref.sourceIds.empty() && ref.sourceTypes.empty()) malformed("a relationships transform selects nothing");
}

ManifestReference readManifestReference(const DOMElement* e) {
  expect(e, u"Reference");
  allowAttributes(e, {u"URI"});
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

  const std::vector<DOMElement*> children = elementsOf(e);
  std::size_t next = 0;
  if (!children.empty() && is(children[0], kDsigNs, u"Transforms")) {
    allowAttributes(children[0], {});
    const std::vector<DOMElement*> transforms = elementsOf(children[0]);
    if (transforms.size() != 2) malformed("a reference must have exactly two transforms");
    expect(transforms[0], u"Transform");
    expect(transforms[1], u"Transform");
    if (attribute(transforms[0], u"Algorithm") != kRelationshipTransform ||
        attribute(transforms[1], u"Algorithm") != kC14n) {
      malformed("transforms other than the relationships transform and canonical XML");
    }
    allowAttributes(transforms[1], {u"Algorithm"});
    expectEmpty(transforms[1]);
    readRelationshipTransform(transforms[0], ref);
    ref.relationshipsTransform = true;
    next = 1;
  }
  if (ref.relationshipsTransform != part->isRelationshipsPartName()) {
    malformed(part->isRelationshipsPartName()
                  ? "relationships part " + std::string(part->text()) + " without the relationships transform"
                  : "part " + std::string(part->text()) + " with transforms");
  }
  if (children.size() != next + 2) malformed("a manifest reference must hold DigestMethod and DigestValue");
  ref.digestMethod = readDigestMethod(children[next]);
  ref.digestValue = readDigestValue(children[next + 1], ref.digestMethod);
  return ref;
}

ustring readSigningTime(const DOMElement* properties) {
  allowAttributes(properties, {});
  const std::vector<DOMElement*> property = elementsOf(properties);
  if (property.size() != 1) malformed("SignatureProperties must hold one SignatureProperty");
  expect(property[0], u"SignatureProperty");
  allowAttributes(property[0], {u"Id", u"Target"});
  const std::vector<DOMElement*> time = elementsOf(property[0]);
  if (time.size() != 1) malformed("SignatureProperty must hold one SignatureTime");
  expect(time[0], u"SignatureTime", kPackageSignatureNs);
  allowAttributes(time[0], {});
  const std::vector<DOMElement*> parts = elementsOf(time[0]);
  if (parts.size() != 2) malformed("SignatureTime must hold Format and Value");
  expect(parts[0], u"Format", kPackageSignatureNs);
  expect(parts[1], u"Value", kPackageSignatureNs);
  allowAttributes(parts[0], {});
  allowAttributes(parts[1], {});
  (void)textOf(parts[0]);
  return textOf(parts[1]);
}

// Every element carrying Id="idPackageObject", wherever it stands.
std::size_t countPackageObjects(const DOMElement* e) {
  std::size_t count = 0;
  ustring id;
  if (XercesHelper::getElementAttribute(e, u"Id", id) && id == kPackageObjectId) ++count;
  for (const DOMNode* n = e->getFirstChild(); n != nullptr; n = n->getNextSibling()) {
    if (n->getNodeType() == DOMNode::ELEMENT_NODE) count += countPackageObjects(static_cast<const DOMElement*>(n));
  }
  return count;
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
    ParserPtr parser = XercesHelper::createParser();
    return XercesHelper::readDocumentFromStream(parser, stream, false, u"", kDsigNs);
  } catch (const opc::Exception& error) {
    malformed(std::string("not a signature document: ") + error.what());
  }
}

const DOMElement* findPackageObject(const DOMElement* e) {
  ustring id;
  if (XercesHelper::getElementAttribute(e, u"Id", id) && id == kPackageObjectId) return e;
  for (const DOMNode* n = e->getFirstChild(); n != nullptr; n = n->getNextSibling()) {
    if (n->getNodeType() != DOMNode::ELEMENT_NODE) continue;
    if (const DOMElement* found = findPackageObject(static_cast<const DOMElement*>(n))) return found;
  }
  return nullptr;
}

}  // namespace

std::size_t BytesInputStream::read(std::uint8_t* buffer, std::size_t size) {
  const std::size_t n = std::min(size, bytes_.size() - position_);
  std::copy_n(bytes_.data() + position_, n, buffer);
  position_ += n;
  return n;
}

Bytes writeSignature(const SignatureContent& content, const RsaPublicComponents* keyValue,
                     const std::function<Bytes(std::span<const std::uint8_t>)>& sign) {
  DocumentPtr document = XercesHelper::createDocument();
  DOMElement* root = XercesHelper::appendElementNS(document.get(), kDsigNs, u"Signature");
  XercesHelper::declareNamespace(root, u"", kDsigNs);
  XercesHelper::setElementAttribute(root, u"Id", kSignatureId);

  DOMElement* signedInfo = add(root, u"SignedInfo");
  XercesHelper::setElementAttribute(add(signedInfo, u"CanonicalizationMethod"), u"Algorithm", kC14n);
  XercesHelper::setElementAttribute(add(signedInfo, u"SignatureMethod"), u"Algorithm",
                                    ustring(signatureUri(content.signatureMethod)));
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
  expect(root, u"Signature");
  allowAttributes(root, {u"Id"});
  if (countPackageObjects(root) != 1) malformed("there must be exactly one package object");

  ParsedSignature parsed;
  const std::vector<DOMElement*> top = elementsOf(root);
  const bool hasKeyInfo = top.size() == 4;
  if (top.size() != 3 && top.size() != 4) malformed("unexpected elements in <Signature>");
  expect(top[0], u"SignedInfo");
  expect(top[1], u"SignatureValue");
  if (hasKeyInfo) {
    expect(top[2], u"KeyInfo");
    const DOMElement* x509 = XercesHelper::getElementNS(top[2], kDsigNs, u"X509Data");
    for (const DOMElement* e : XercesHelper::getElementsNS(x509, kDsigNs, u"X509Certificate")) {
      parsed.content.certificates.push_back(base64Of(e));
    }
  }
  const DOMElement* object = top.back();
  expect(object, u"Object");
  const DOMElement* signedInfo = top[0];
  allowAttributes(signedInfo, {});
  const std::vector<DOMElement*> info = elementsOf(signedInfo);
  if (info.size() != 3) malformed("SignedInfo must hold exactly one reference");
  expect(info[0], u"CanonicalizationMethod");
  allowAttributes(info[0], {u"Algorithm"});
  expectEmpty(info[0]);
  if (attribute(info[0], u"Algorithm") != kC14n) malformed("unsupported canonicalization method");
  expect(info[1], u"SignatureMethod");
  allowAttributes(info[1], {u"Algorithm"});
  expectEmpty(info[1]);
  const ustring signatureMethod = attribute(info[1], u"Algorithm");
  bool knownMethod = false;
  for (const auto& a : kSignatures) {
    if (signatureMethod == a.uri) {
      parsed.content.signatureMethod = a.method;
      knownMethod = true;
    }
  }
  if (!knownMethod) malformed("unsupported signature method " + opc::detail::narrow(signatureMethod));

  const DOMElement* reference = info[2];
  expect(reference, u"Reference");
  allowAttributes(reference, {u"URI", u"Type"});
  if (attribute(reference, u"URI") != u"#" + ustring(kPackageObjectId)) {
    malformed("SignedInfo must reference the package object");
  }
  ustring type;
  if (XercesHelper::getElementAttribute(reference, u"Type", type) && type != kObjectType) {
    malformed("the package object reference has the wrong type");
  }
  const std::vector<DOMElement*> digest = elementsOf(reference);
  if (digest.size() != 2) malformed("the package object reference must hold DigestMethod and DigestValue only");
  parsed.content.objectDigestMethod = readDigestMethod(digest[0]);
  parsed.objectDigest = readDigestValue(digest[1], parsed.content.objectDigestMethod);

  allowAttributes(top[1], {});
  parsed.signatureValue = base64Of(top[1]);

  allowAttributes(object, {u"Id"});
  if (attribute(object, u"Id") != kPackageObjectId) malformed("the Object is not the package object");
  const std::vector<DOMElement*> objectContent = elementsOf(object);
  if (objectContent.empty() || objectContent.size() > 2) malformed("unexpected content in the package object");
  expect(objectContent[0], u"Manifest");
  allowAttributes(objectContent[0], {});
  const std::vector<DOMElement*> references = elementsOf(objectContent[0]);
  if (references.empty()) malformed("the manifest is empty");
  for (const DOMElement* e : references) {
    ManifestReference ref = readManifestReference(e);
    for (const ManifestReference& earlier : parsed.content.references) {
      if (earlier.part == ref.part) malformed("part " + std::string(ref.part.text()) + " is referenced twice");
    }
    parsed.content.references.push_back(std::move(ref));
  }
  if (objectContent.size() == 2) {
    expect(objectContent[1], u"SignatureProperties");
    parsed.content.signingTime = readSigningTime(objectContent[1]);
  }

  parsed.canonicalSignedInfo = canonicalize(document.get(), signedInfo);
  parsed.canonicalObject = canonicalize(document.get(), object);
  return parsed;
}

SignatureContent readSignatureScope(opc::InputStream& input) {
  const DocumentPtr document = parseSignatureDocument(input);
  const DOMElement* object = findPackageObject(document->getDocumentElement());
  if (object == nullptr) malformed("the signature has no package object");
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
