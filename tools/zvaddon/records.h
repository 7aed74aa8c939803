#pragma once
// The seven metadata records as people read and write them (manifest sections, `get`, `set`,
// `inspect --json`) and as the gateway's host structures hold them.
//
// People's form: an object (or, for lists of entries, an array of objects) with exactly the host
// structure's field names. Every field may be left out (empty text, empty list, "true" for flags);
// flags ("win", "installByDefault", ...) take true/false or text; lists are always arrays. What
// recordFromHost gives back is that form with every field present, so its output fed to recordToHost
// and stored gives the same record.
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "gateway.h"

namespace zvaddon::tool {

enum class Record { properties, systemRequirements, configuration, license, examples, revisionHistory, apps };

struct RecordInfo {
  Record record;
  std::string_view name;  // the key in the manifest and in `inspect --json`, the RECORD of get/set
  std::string_view setFunction;
  std::string_view getFunction;
};

// Every record, in Record order, which is the order inspect shows them.
[[nodiscard]] std::span<const RecordInfo> allRecords();
// The record of that name; throws ToolError(usage) naming the records when there is none.
[[nodiscard]] const RecordInfo& requireRecord(std::string_view name);

// People's form to the host structure's JSON (input of zvAddonSet*/zvAddonCreate). `pointer` is the
// JSON pointer of `value` in its document, used in messages. Throws ToolError(badInput) naming the
// pointer of an unknown key or of a value of the wrong type.
[[nodiscard]] Json recordToHost(Record record, const Json& value, const std::string& pointer);

// A Get function's output to people's form.
[[nodiscard]] Json recordFromHost(Record record, const Json& host);

// The elements of a host array as zvhost::json writes it: plain forms where they exist, typed
// otherwise (structure arrays that are not one row, empty ones with fields); null has none, any
// other value is its one element.
[[nodiscard]] std::vector<const Json*> hostElements(const Json& value);

// ToolError(badInput) "POINTER: WHAT", the pointer "/" for the whole document.
[[noreturn]] void badInput(const std::string& pointer, const std::string& what);
// badInput "expected EXPECTED, found " and what `found` is ("a number", "an object", ...).
[[noreturn]] void wrongType(const std::string& pointer, std::string_view expected, const Json& found);
// badInput naming the first key of `object` that is not among `keys`, and the keys expected.
void requireKnownKeys(const Json& object, const std::string& pointer, const std::vector<std::string_view>& keys);
// Appends a key to a JSON pointer, escaping '~' and '/'.
[[nodiscard]] std::string childPointer(const std::string& pointer, std::string_view key);
[[nodiscard]] std::string childPointer(const std::string& pointer, std::size_t index);

}  // namespace zvaddon::tool
