#include "metadata/revision_history.h"

#include "metadata/host_fields.h"

namespace addon::packaging {
namespace {

using opc::model::XercesHelper;

constexpr const char* kDate = "date";
constexpr const char* kVersion = "version";
constexpr const char* kDescription = "description";

}  // namespace

AddonRevision::~AddonRevision() = default;

void AddonRevisionHistory::setIdentifiers() {
  setPartIdentifiers(u"/metadata/revisionHistory.xml",
                     u"application/vnd.kestrelon.zorvan.addon.revisionHistory+xml",
                     schemaURI(u"/zorvan/addon/2014/revisionHistory"),
                     schemaURI(u"/zorvan/addon/2014/relationships/revisionHistory"));
}

AddonRevisionHistory::AddonRevisionHistory() { setIdentifiers(); }

AddonRevisionHistory::AddonRevisionHistory(const qxArray* input) {
  setIdentifiers();
  const qxSize count = qxGetNumberOfElements(input);
  revisions.reserve(count);
  for (qxSize i = 0; i < count; ++i) {
    AddonRevision& revision = revisions.emplace_back();
    revision.date = hostio::readString(input, kDate, i);
    revision.version = hostio::readString(input, kVersion, i);
    revision.description = hostio::readString(input, kDescription, i);
  }
}

qxArray* AddonRevisionHistory::getStructArray() const {
  hostio::ArrayPtr result = hostio::createStructList({kDate, kVersion, kDescription}, revisions.size());
  for (qxSize i = 0; i < revisions.size(); ++i) {
    hostio::setString(result.get(), kDate, revisions[i].date, i);
    hostio::setString(result.get(), kVersion, revisions[i].version, i);
    hostio::setString(result.get(), kDescription, revisions[i].description, i);
  }
  return result.release();
}

void AddonRevisionHistory::buildDOM(opc::model::DocumentPtr& document) {
  const opc::model::XercesString ns(getNamespace());
  xercesc::DOMElement* root = XercesHelper::appendElementNS(document.get(), ns, u"revisionHistory");
  for (const AddonRevision& revision : revisions) {
    xercesc::DOMElement* element = XercesHelper::appendElementNS(root, ns, u"revision");
    XercesHelper::setElementAttribute(element, u"date", revision.date);
    XercesHelper::setElementAttribute(element, u"version", revision.version);
    XercesHelper::setElementText(XercesHelper::appendElementNS(element, ns, u"description"), revision.description);
  }
}

void AddonRevisionHistory::populateFromDOM(xercesc::DOMDocument* document) {
  std::vector<AddonRevision> read;
  const xercesc::DOMElement* root = document ? document->getDocumentElement() : nullptr;
  for (const xercesc::DOMElement* element : XercesHelper::getElements(root, u"revision")) {
    AddonRevision& revision = read.emplace_back();
    XercesHelper::getElementAttribute(element, u"date", revision.date);
    XercesHelper::getElementAttribute(element, u"version", revision.version);
    XercesHelper::getElementText(XercesHelper::getElement(element, u"description"), revision.description);
  }
  revisions = std::move(read);
}

}  // namespace addon::packaging
