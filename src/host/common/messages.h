#pragma once
// Message catalogues of the hosts: the texts of message keys, with numbered placeholders.
//
// A catalogue "a:b" is the file <dir>/b.json, one JSON object mapping each key to its text, in which
// "{0}", "{1}", ... stand for the message arguments: integers in decimal, narrow text as it is, UTF-16
// as UTF-8 (a lone surrogate becomes U+FFFD, so that a message shows whatever its arguments hold).
// dir is, in order of preference: the directory set by setMessageDirectory, the environment variable
// ZVADDON_MESSAGE_DIR, the installed message directory when it exists, the source tree's
// resources/messages.
#include <optional>
#include <string>
#include <vector>

#include "foundation/message.h"
#include "host/qx.h"

namespace zvhost {

// The text of key in catalogue with its placeholders filled in (one whose number has no argument
// stays as written). When the file is missing, unreadable or malformed, or the key is missing or not
// text: the identifier "catalogue:key" followed by the arguments in parentheses. Catalogues are loaded
// once, on first use; safe to call from several threads.
QX_API std::string formatMessage(const std::string& catalogue, const std::string& key,
                                 const std::vector<foundation::core::msg::MessageArgument>& arguments);

// Overrides the directory (nullopt restores the default order) and forgets the catalogues loaded so
// far. For tests and embedding hosts.
QX_API void setMessageDirectory(std::optional<std::string> directory);

}  // namespace zvhost
