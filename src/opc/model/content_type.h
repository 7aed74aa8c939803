#pragma once
// Media types of parts.
#include <string>

#include "foundation/ustring.h"

namespace opc::model {

// A media type "type/subtype" with optional ";name=value" parameters, RFC 2616 grammar without
// linear white space (the packaging conventions forbid it). Throws opc::Exception when invalid.
// Equality ignores ASCII case in type, subtype and parameter names; parameter values compare exactly.
class ContentType {
 public:
  explicit ContentType(const ustring& text);

  [[nodiscard]] const ustring& toString() const { return text_; }
  // Lower-cased.
  [[nodiscard]] ustring getType() const;
  [[nodiscard]] ustring getSubType() const;
  [[nodiscard]] bool operator==(const ContentType& other) const { return key_ == other.key_; }

 private:
  ustring text_;
  ustring key_;  // lower-cased except parameter values
};

}  // namespace opc::model
