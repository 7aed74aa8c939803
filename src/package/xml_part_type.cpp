#include "package/xml_part_type.h"

#include <sstream>

#include "foundation/i18n.h"
#include "opc/streams.h"

namespace addon::packaging {

XMLPartType::XMLPartType() = default;
XMLPartType::~XMLPartType() = default;

void XMLPartType::setPartIdentifiers(ustring partName, ustring contentType, ustring ns, ustring relationshipType) {
  partName_ = std::move(partName);
  contentType_ = std::move(contentType);
  namespace_ = std::move(ns);
  relationshipType_ = std::move(relationshipType);
}

opc::model::DocumentPtr createRecordDocument() {
  opc::model::DocumentPtr document = opc::model::XercesHelper::createDocument();
  document->setXmlStandalone(true);
  return document;
}

void XMLPartType::populateFromXML(const ustring& xml) {
  const fl::i18n::codecvt_ustring_to_string toUtf8("UTF-8");
  std::istringstream bytes(fl::i18n::to_string(toUtf8, xml));
  opc::StdIStreamAdaptor stream(bytes);
  const opc::model::DocumentPtr document = opc::model::XercesHelper::readDocumentFromStream(stream, ustring());
  populateFromDOM(document.get());
}

ustring XMLPartType::getAsXMLString() {
  opc::model::DocumentPtr document = createRecordDocument();
  buildDOM(document);
  std::ostringstream bytes;
  opc::StdOStreamAdaptor stream(bytes);
  opc::model::XercesHelper::writeDocumentToStream(*document, stream);
  stream.flush();
  const fl::i18n::codecvt_string_to_ustring fromUtf8("UTF-8");
  return fl::i18n::to_ustring(fromUtf8, bytes.str());
}

}  // namespace addon::packaging
