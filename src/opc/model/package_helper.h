#pragma once
// Names fixed by the packaging conventions.
#include "foundation/ustring.h"
#include "opc/model/part_name.h"
#include "opc/model/uri.h"

namespace opc::model {

class PackageHelper {
 public:
  // "/": the source URI of package-level relationships.
  [[nodiscard]] static const URI& getPackageRootURI();

  [[nodiscard]] static const ustring& getThumbnailRelationshipType() {
    static const ustring value = u"http://schemas.openxmlformats.org/package/2006/relationships/metadata/thumbnail";
    return value;
  }
  [[nodiscard]] static const ustring& getCorePropertiesRelationshipType() {
    static const ustring value = u"http://schemas.openxmlformats.org/package/2006/relationships/metadata/core-properties";
    return value;
  }
  [[nodiscard]] static const ustring& getCorePropertiesContentType() {
    static const ustring value = u"application/vnd.openxmlformats-package.core-properties+xml";
    return value;
  }
  [[nodiscard]] static const ustring& getCorePropertiesNamespace() {
    static const ustring value = u"http://schemas.openxmlformats.org/package/2006/metadata/core-properties";
    return value;
  }
  [[nodiscard]] static const ustring& getDigitalSignatureOriginRelationshipType() {
    static const ustring value = u"http://schemas.openxmlformats.org/package/2006/relationships/digital-signature/origin";
    return value;
  }
  [[nodiscard]] static const ustring& getDigitalSignatureRelationshipType() {
    static const ustring value = u"http://schemas.openxmlformats.org/package/2006/relationships/digital-signature/signature";
    return value;
  }
  [[nodiscard]] static const ustring& getDigitalSignatureOriginContentType() {
    static const ustring value = u"application/vnd.openxmlformats-package.digital-signature-origin";
    return value;
  }
  [[nodiscard]] static const ustring& getDigitalSignatureXMLSignatureContentType() {
    static const ustring value = u"application/vnd.openxmlformats-package.digital-signature-xmlsignature+xml";
    return value;
  }
  [[nodiscard]] static const ustring& getRelationshipsContentType() {
    static const ustring value = u"application/vnd.openxmlformats-package.relationships+xml";
    return value;
  }
  [[nodiscard]] static const ustring& getRelationshipsNamespace() {
    static const ustring value = u"http://schemas.openxmlformats.org/package/2006/relationships";
    return value;
  }
  [[nodiscard]] static const ustring& getContentTypesNamespace() {
    static const ustring value = u"http://schemas.openxmlformats.org/package/2006/content-types";
    return value;
  }

  // "/_rels/.rels" for the root, "/a/_rels/b.xml.rels" for "/a/b.xml".
  [[nodiscard]] static PartName getRelationshipsPartName(const URI& source);
  // The inverse: the source URI ("/" or a part name's URI) of a relationships part name. Throws
  // opc::Exception when `relationshipsPart` is no relationships part name or names the relationships
  // of a relationships part.
  [[nodiscard]] static URI getSourceURI(const PartName& relationshipsPart);

};

}  // namespace opc::model
