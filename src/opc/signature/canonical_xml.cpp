#include "opc/signature/canonical_xml.h"

#include <xsec/canon/XSECC14n20010315.hpp>
#include <xsec/framework/XSECException.hpp>
#include <xsec/utils/XSECPlatformUtils.hpp>

#include <algorithm>
#include <cstdlib>
#include <mutex>
#include <string>

#include <xercesc/util/XMLException.hpp>

#include "opc/detail/text.h"
#include "opc/exception.h"
#include "opc/model/package_helper.h"
#include "opc/model/relationship.h"
#include "opc/xml/xerces_helper.h"

namespace opc::model::signature {

namespace {

// xml-security-c keeps process-wide state (its buffers' character tables); it is set up once, after
// Xerces, and torn down at exit before Xerces (exit handlers run in reverse order of registration).
void ensureXmlSecurity() {
  static std::once_flag once;
  std::call_once(once, [] {
    try {
      XSECPlatformUtils::Initialise();
    } catch (const XSECException& e) {
      throw opc::Exception("could not initialise xml-security-c: " +
                           opc::detail::narrow(XercesString::toUString(e.getMsg())));
    }
    std::atexit([] { XSECPlatformUtils::Terminate(); });
  });
}

}  // namespace

std::vector<std::uint8_t> canonicalize(const xercesc::DOMDocument* document, const xercesc::DOMNode* node) {
  ensureXmlSecurity();
  auto* doc = const_cast<xercesc::DOMDocument*>(document);  // the canonicaliser only reads
  auto* start = const_cast<xercesc::DOMNode*>(node);
  std::vector<std::uint8_t> out;
  try {
    XSECC14n20010315 canon(doc, start);
    canon.setCommentsProcessing(false);
    canon.setUseNamespaceStack(true);
    unsigned char buffer[4096];
    for (XMLSize_t n = 0; (n = canon.outputBuffer(buffer, sizeof buffer)) != 0;) {
      out.insert(out.end(), buffer, buffer + n);
    }
  } catch (const XSECException& e) {
    throw opc::Exception("canonicalisation failed: " + opc::detail::narrow(XercesString::toUString(e.getMsg())));
  } catch (const xercesc::XMLException& e) {
    throw opc::Exception("canonicalisation failed: " + opc::detail::narrow(XercesString::toUString(e.getMessage())));
  } catch (const xercesc::DOMException& e) {
    throw opc::Exception("canonicalisation failed: " + opc::detail::narrow(XercesString::toUString(e.getMessage())));
  }
  return out;
}

std::vector<std::uint8_t> transformRelationships(const Relationships& relationships, const std::vector<ustring>& ids,
                                                 const std::vector<ustring>& types) {
  // Code-point order is the order of the UTF-8 bytes.
  std::vector<std::pair<std::string, const Relationship*>> sorted;
  for (const Relationship& r : relationships.getRelationships()) {
    const bool byId = std::find(ids.begin(), ids.end(), r.getId()) != ids.end();
    const bool byType = std::find(types.begin(), types.end(), r.getType()) != types.end();
    if (byId || byType) sorted.emplace_back(opc::detail::narrow(r.getId()), &r);
  }
  std::stable_sort(sorted.begin(), sorted.end(), [](const auto& a, const auto& b) { return a.first < b.first; });

  DocumentPtr document = XercesHelper::createDocument();
  const XercesString ns(PackageHelper::kRelationshipsNamespace);
  xercesc::DOMElement* root = XercesHelper::appendElementNS(document.get(), ns, u"Relationships");
  // The canonicaliser renders namespace declarations only where the DOM has them as attributes.
  XercesHelper::declareNamespace(root, u"", ns);
  for (const auto& [key, r] : sorted) {
    xercesc::DOMElement* element = XercesHelper::appendElementNS(root, ns, u"Relationship");
    XercesHelper::setElementAttribute(element, u"Id", r->getId());
    XercesHelper::setElementAttribute(element, u"Type", r->getType());
    XercesHelper::setElementAttribute(element, u"Target", r->getTargetURI().toString());
    XercesHelper::setElementAttribute(element, u"TargetMode",
                                      r->getTargetMode() == TargetMode::External ? u"External" : u"Internal");
  }
  return canonicalize(document.get(), document.get());
}

}  // namespace opc::model::signature
