#include "package/xml_part_type.h"

#include <sstream>

#include "foundation/i18n.h"
#include "opc/streams.h"

namespace addon::packaging {

XMLPartType::XMLPartType() = default;
XMLPartType::~XMLPartType() = default;

void XMLPartType::setPartIdentifiers(std::u16string_view name, std::u16string_view type) {
  partName_ = u"/metadata/" + ustring(name) + u".xml";
  contentType_ = u"application/vnd.kestrelon.zorvan.addon." + ustring(type) + u"+xml";
  namespace_ = schemaURI(name);
  relationshipType_ = schemaURI(u"relationships/" + ustring(name));
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
