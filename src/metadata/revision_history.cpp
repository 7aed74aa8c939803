#include "metadata/revision_history.h"

namespace addon::packaging {
namespace {

using namespace hostio;

// "date" and "version" are attributes in XML, "description" an element.
const Text<AddonRevision> kRevision[] = {
    {"date", &AddonRevision::date}, {"version", &AddonRevision::version}, {"description", &AddonRevision::description}};
const auto kAttributes = std::span(kRevision).first(2);

}  // namespace

AddonRevisionHistory::AddonRevisionHistory() {
  setPartIdentifiers(u"revisionHistory", u"revisionHistory");
}

AddonRevisionHistory::AddonRevisionHistory(const qxArray* input) : AddonRevisionHistory() {
  revisions = readList(input, kRevision, [](AddonRevision&, qxIndex) {});
}

qxArray* AddonRevisionHistory::getStructArray() const {
  return writeList(revisions, kRevision, {}, [](qxArray*, qxIndex, const AddonRevision&) {}).release();
}

void AddonRevisionHistory::buildDOM(opc::model::DocumentPtr& document) {
  const XercesString ns(getNamespace());
  DOMElement* root = XercesHelper::appendElementNS(document.get(), ns, u"revisionHistory");
  for (const AddonRevision& revision : revisions) {
    DOMElement* element = XercesHelper::appendElementNS(root, ns, u"revision");
    setAttributes(element, kAttributes, revision);
    XercesHelper::setElementText(XercesHelper::appendElementNS(element, ns, u"description"), revision.description);
  }
}

void AddonRevisionHistory::populateFromDOM(xercesc::DOMDocument* document) {
  std::vector<AddonRevision> read;
  for (const DOMElement* element : XercesHelper::getElements(rootOf(document), u"revision")) {
    AddonRevision& revision = read.emplace_back();
    getAttributes(element, kAttributes, revision);
    XercesHelper::getElementText(XercesHelper::getElement(element, u"description"), revision.description);
  }
  revisions = std::move(read);
}

}  // namespace addon::packaging
