#pragma once
// Message catalogues of the reference host: the texts of message keys, with numbered placeholders.
//
// A catalogue "a:b" is the file <dir>/b.json, one JSON object mapping each key to its text, in which
// "{0}", "{1}", ... stand for the message arguments (formatted as UTF-8). dir is, in order of
// preference: the directory set by setMessageDirectory, the environment variable ZVADDON_MESSAGE_DIR,
// the installed message directory when it exists, the source tree's resources/messages.
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/message.h"
#include "host/qx.h"

namespace zvhost::reference {

class QX_API MessageCatalog {
 public:
  // A missing, unreadable or malformed file gives an empty catalogue; entries whose value is not a
  // string are skipped. Never throws for the file's content.
  static MessageCatalog load(const std::string& directory, std::string_view catalogue);

  [[nodiscard]] bool empty() const { return texts_.empty(); }
  // The key's text with its placeholders filled in, or nothing when the key is unknown. A placeholder
  // whose number has no argument stays as written.
  [[nodiscard]] std::optional<std::string> format(
      const std::string& key, const std::vector<foundation::core::msg::MessageArgument>& arguments) const;

 private:
  std::map<std::string, std::string, std::less<>> texts_;
};

// An argument as message text: integers in decimal, narrow text as it is, UTF-16 as UTF-8 (a lone
// surrogate becomes U+FFFD).
QX_API std::string formatArgument(const foundation::core::msg::MessageArgument& argument);

// The text of key in catalogue, from the catalogue file; when the file or the key is missing, the
// identifier "catalogue:key" followed by the arguments in parentheses. Catalogues are loaded once, on
// first use; safe to call from several threads.
QX_API std::string formatMessage(const std::string& catalogue, const std::string& key,
                                 const std::vector<foundation::core::msg::MessageArgument>& arguments);

// Where catalogues are read from now.
QX_API std::string messageDirectory();
// Overrides the directory (nullopt restores the default order) and forgets the catalogues loaded so
// far. For tests and embedding hosts.
QX_API void setMessageDirectory(std::optional<std::string> directory);

}  // namespace zvhost::reference
