#include "foundation/message.h"

namespace foundation::core::msg {

MessageArgument toArgument(const ustring& text) { return MessageArgument(std::in_place_type<ustring>, text); }
MessageArgument toArgument(const char* text) {
  return MessageArgument(std::in_place_type<std::string>, text ? std::string(text) : std::string());
}
MessageArgument toArgument(const std::string& text) { return MessageArgument(std::in_place_type<std::string>, text); }
MessageArgument toArgument(std::int64_t value) { return MessageArgument(std::in_place_type<std::int64_t>, value); }

BuiltinMessage::BuiltinMessage(const char* catalog, std::size_t catalogLength, const char* key, std::size_t keyLength,
                               std::vector<MessageArgument> arguments)
    : arguments_(std::move(arguments)), catalog_(catalog, catalogLength), key_(key, keyLength) {}

}  // namespace foundation::core::msg
