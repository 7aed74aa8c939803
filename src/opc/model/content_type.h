#pragma once
// Media types of parts.
#include <string>

#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <boost/smart_ptr/intrusive_ref_counter.hpp>

#include "foundation/ustring.h"

namespace opc::model {

// A media type "type/subtype" with optional ";name=value" parameters, RFC 2616 grammar without
// linear white space (the packaging conventions forbid it). Throws opc::Exception when invalid.
// Equality ignores ASCII case in type, subtype and parameter names; parameter values compare exactly.
// Copies share one immutable text: every part of a package holds one, in one pointer's room.
class ContentType {
 public:
  explicit ContentType(const ustring& text);
  // Copy only: a moved-from value would have no text.
  ContentType(const ContentType&) = default;
  ContentType& operator=(const ContentType&) = default;

  [[nodiscard]] const ustring& toString() const { return data_->text; }
  [[nodiscard]] bool operator==(const ContentType& other) const {
    return data_ == other.data_ || data_->key == other.data_->key;
  }

 private:
  struct Data : boost::intrusive_ref_counter<Data, boost::thread_safe_counter> {
    Data(ustring t, ustring k) : text(std::move(t)), key(std::move(k)) {}
    ustring text;
    ustring key;  // lower-cased except parameter values
  };
  boost::intrusive_ptr<const Data> data_;
};

}  // namespace opc::model
