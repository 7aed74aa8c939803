#pragma once
// The base of every metadata record: the four names that identify its part, and the two operations
// by which a record turns itself into a DOM and back. Records are stored and read by AddonPackage.
#include <string_view>

#include <xercesc/dom/DOMDocument.hpp>

#include "foundation/ustring.h"
#include "opc/xml/xerces_helper.h"

#define ZV_API __attribute__((visibility("default")))

namespace addon::packaging {

// The base in front of every namespace and relationship type the system defines, followed by `path`
// ("examples", "relationships/examples").
[[nodiscard]] inline ustring schemaURI(std::u16string_view path) {
  return u"https://schemas.zvaddon.org/zorvan/addon/2014/" + ustring(path);
}

// Copyable value base. Keeps Xerces initialised while a record lives, so a record's DOM work needs
// no guard of its own. Errors from the XML library (opc::Exception) propagate unchanged.
class ZV_API XMLPartType {
 public:
  virtual ~XMLPartType();

  // Appends the record's root element and content to `document`, which is empty and owned by the
  // caller.
  virtual void buildDOM(opc::model::DocumentPtr& document) = 0;
  // Replaces the record's content from a parsed document (lists emptied first).
  virtual void populateFromDOM(xercesc::DOMDocument* document) = 0;

  // Fills the record from XML text held in memory. The root's namespace is not checked here.
  void populateFromXML(const ustring& xml);
  // The record's document as XML text.
  [[nodiscard]] ustring getAsXMLString();

  [[nodiscard]] const ustring& getPartName() const { return partName_; }
  [[nodiscard]] const ustring& getContentType() const { return contentType_; }
  [[nodiscard]] const ustring& getNamespace() const { return namespace_; }
  [[nodiscard]] const ustring& getRelationshipType() const { return relationshipType_; }

 protected:
  XMLPartType();
  XMLPartType(const XMLPartType&) = default;
  XMLPartType& operator=(const XMLPartType&) = default;

  // Every record's constructors call this first: the part "/metadata/<name>.xml" of content type
  // "application/vnd.kestrelon.zorvan.addon.<type>+xml", in namespace schemaURI(name), related by
  // type schemaURI("relationships/<name>").
  void setPartIdentifiers(std::u16string_view name, std::u16string_view type);

 private:
  opc::model::XercesGuard guard_;
  ustring partName_;
  ustring contentType_;
  ustring namespace_;
  ustring relationshipType_;
};

// A new empty standalone document, ready for buildDOM.
[[nodiscard]] opc::model::DocumentPtr createRecordDocument();

}  // namespace addon::packaging
