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

  [[nodiscard]] static const ustring& getThumbnailRelationshipType();
  [[nodiscard]] static const ustring& getCorePropertiesRelationshipType();
  [[nodiscard]] static const ustring& getCorePropertiesContentType();
  [[nodiscard]] static const ustring& getCorePropertiesNamespace();
  [[nodiscard]] static const ustring& getDigitalSignatureOriginRelationshipType();
  [[nodiscard]] static const ustring& getDigitalSignatureRelationshipType();
  [[nodiscard]] static const ustring& getDigitalSignatureOriginContentType();
  [[nodiscard]] static const ustring& getDigitalSignatureXMLSignatureContentType();
  [[nodiscard]] static const ustring& getRelationshipsContentType();
  [[nodiscard]] static const ustring& getRelationshipsNamespace();
  [[nodiscard]] static const ustring& getContentTypesNamespace();

  // "/_rels/.rels" for the root, "/a/_rels/b.xml.rels" for "/a/b.xml".
  [[nodiscard]] static PartName getRelationshipsPartName(const URI& source);
  // The inverse: the source URI ("/" or a part name's URI) of a relationships part name. Throws
  // opc::Exception when `relationshipsPart` is no relationships part name or names the relationships
  // of a relationships part.
  [[nodiscard]] static URI getSourceURI(const PartName& relationshipsPart);
};

}  // namespace opc::model
