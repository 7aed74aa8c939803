#pragma once
// The seven metadata records as people read and write them (manifest sections, `get`, `set`,
// `inspect --json`) and as the gateway's host structures hold them.
//
// People's form: an object (or, for lists of entries, an array of objects) with exactly the host
// structure's field names. Every field may be left out (empty text, empty list, "true" for flags);
// flags ("win", "installByDefault", ...) take true/false or text; lists are always arrays. What
// recordFromHost gives back is that form with every field present, so its output fed to recordToHost
// and stored gives the same record.
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

// Every record, in the order inspect shows them.
[[nodiscard]] const std::vector<RecordInfo>& allRecords();
[[nodiscard]] const RecordInfo& recordInfo(Record record);
// The record of that name, or nullptr.
[[nodiscard]] const RecordInfo* findRecord(std::string_view name);

// People's form to the host structure's JSON (input of zvAddonSet*/zvAddonCreate). `pointer` is the
// JSON pointer of `value` in its document, used in messages. Throws ToolError(badInput) naming the
// pointer of an unknown key or of a value of the wrong type.
[[nodiscard]] Json recordToHost(Record record, const Json& value, const std::string& pointer);

// A Get function's output to people's form.
[[nodiscard]] Json recordFromHost(Record record, const Json& host);

// "a JSON number", "an object", ...: for messages.
[[nodiscard]] std::string describeJsonType(const Json& value);
// Appends a key to a JSON pointer, escaping '~' and '/'.
[[nodiscard]] std::string childPointer(const std::string& pointer, std::string_view key);
[[nodiscard]] std::string childPointer(const std::string& pointer, std::size_t index);

}  // namespace zvaddon::tool
