#pragma once
// The message-key object that an error carries to the host: a catalogue, a key and typed arguments.
#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "foundation/ustring.h"

namespace foundation::core::msg {

// One argument of a host message. A slot created but not yet assigned holds the integer 0.
using MessageArgument = std::variant<std::int64_t, std::string, ustring>;

// Converts a typed value into an argument: UTF-16 text stays UTF-16 (copied), narrow text is kept
// byte for byte (a null pointer gives the empty string), integers stay integers.
MessageArgument toArgument(const ustring& text);
MessageArgument toArgument(const char* text);
MessageArgument toArgument(const std::string& text);
MessageArgument toArgument(std::int64_t value);

class BuiltinMessage {
 public:
  // Throws std::logic_error when catalog or key is null with a non-zero length (std::string's rule).
  BuiltinMessage(const char* catalog, std::size_t catalogLength, const char* key, std::size_t keyLength,
                 std::vector<MessageArgument> arguments = {});
  virtual ~BuiltinMessage() = default;
  BuiltinMessage(const BuiltinMessage&) = default;
  BuiltinMessage& operator=(const BuiltinMessage&) = default;

  [[nodiscard]] const std::vector<MessageArgument>& arguments() const { return arguments_; }
  [[nodiscard]] const std::string& catalog() const { return catalog_; }
  [[nodiscard]] const std::string& key() const { return key_; }

 protected:
  // For key classes: creates `count` slots (integer 0), then fills them first to last, so that a
  // failing conversion leaves nothing half-built behind.
  template <class... Args>
  static std::vector<MessageArgument> makeArguments(const Args&... args) {
    std::vector<MessageArgument> slots(sizeof...(Args));
    [[maybe_unused]] std::size_t i = 0;
    ((slots[i++] = toArgument(args)), ...);
    return slots;
  }

 private:
  std::vector<MessageArgument> arguments_;
  std::string catalog_;
  std::string key_;
};

}  // namespace foundation::core::msg
