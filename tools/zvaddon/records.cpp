#include "records.h"

#include <algorithm>

#include "tool_error.h"

namespace zvaddon::tool {
namespace {

// How one field travels. Flags are text on the host side ("true"/"false" or whatever was stored).
enum class Kind { text, flag, textList, object, objectList };

struct Field {
  std::string_view key;
  Kind kind;
  std::span<const Field> fields = {};  // object and objectList: the entry's fields
  std::string_view fallback = {};      // text: the value of a field left out (a flag left out is "true")
};

constexpr Field kPropertiesFields[] = {
    {"type", Kind::text, {}, "ZORVAN Toolbox"}, {"name", Kind::text}, {"version", Kind::text},
    {"ZORVANRelease", Kind::text}, {"summary", Kind::text}, {"authorName", Kind::text},
    {"authorContact", Kind::text}, {"authorOrganization", Kind::text}, {"GUID", Kind::text},
    {"description", Kind::text},
};
constexpr Field kProductFields[] = {{"name", Kind::text}, {"version", Kind::text}, {"identifier", Kind::text}};
constexpr Field kAddonDependencyFields[] = {
    {"name", Kind::text}, {"identifier", Kind::text}, {"earliestVersion", Kind::text},
    {"latestVersion", Kind::text}, {"downloadURL", Kind::text}, {"checksum", Kind::text},
    {"checksumVersion", Kind::text},
};
constexpr Field kPlatformFields[] = {{"win", Kind::flag}, {"linux", Kind::flag}, {"mac", Kind::flag},
                                     {"ZORVANOnline", Kind::flag}};
constexpr Field kReleaseFields[] = {{"start", Kind::text}, {"end", Kind::text}};
constexpr Field kRequirementsFields[] = {
    {"productDependency", Kind::objectList, kProductFields},
    {"supportPackageDependency", Kind::objectList, kProductFields},
    {"platformCompatibility", Kind::object, kPlatformFields}, {"releaseCompatibility", Kind::object, kReleaseFields},
    {"addonDependency", Kind::objectList, kAddonDependencyFields},
};
constexpr Field kConfigurationFields[] = {
    {"zorvanPaths", Kind::textList}, {"javaClassPaths", Kind::textList}, {"infoXMLPath", Kind::text},
    {"gettingStartedDocPath", Kind::text}, {"installMapPath", Kind::text},
};
constexpr Field kLicenseFields[] = {{"type", Kind::text}, {"text", Kind::text}};
constexpr Field kExampleFields[] = {
    {"name", Kind::text}, {"type", Kind::text}, {"source", Kind::text}, {"main", Kind::text},
    {"thumbnail", Kind::text}, {"images", Kind::textList},
};
constexpr Field kCategoryFields[] = {{"name", Kind::text}, {"examples", Kind::objectList, kExampleFields}};
constexpr Field kRevisionFields[] = {{"date", Kind::text}, {"version", Kind::text}, {"description", Kind::text}};
constexpr Field kAppFields[] = {{"name", Kind::text}, {"guid", Kind::text}, {"relativePath", Kind::text},
                                {"installByDefault", Kind::flag}};

// Each record as one field without a key, an object or a list of entries, in Record order.
constexpr Field kRecordFields[] = {
    {"", Kind::object, kPropertiesFields},  {"", Kind::object, kRequirementsFields},
    {"", Kind::object, kConfigurationFields}, {"", Kind::object, kLicenseFields},
    {"", Kind::objectList, kCategoryFields}, {"", Kind::objectList, kRevisionFields},
    {"", Kind::objectList, kAppFields},
};

constexpr RecordInfo kRecords[] = {
    {Record::properties, "properties", "zvAddonSetProperties", "zvAddonGetProperties"},
    {Record::systemRequirements, "systemRequirements", "zvAddonSetSystemRequirements", "zvAddonGetSystemRequirements"},
    {Record::configuration, "configuration", "zvAddonSetConfiguration", "zvAddonGetConfiguration"},
    {Record::license, "license", "zvAddonSetLicense", "zvAddonGetLicense"},
    {Record::examples, "examples", "zvAddonSetExamples", "zvAddonGetExamples"},
    {Record::revisionHistory, "revisionHistory", "zvAddonSetRevisionHistory", "zvAddonGetRevisionHistory"},
    {Record::apps, "apps", "zvAddonSetAppInstallList", "zvAddonGetAppInstallList"},
};

std::string describeJsonType(const Json& value) {
  switch (value.type()) {
    case Json::value_t::null: return "null";
    case Json::value_t::boolean: return value.get<bool>() ? "true" : "false";
    case Json::value_t::string: return "text";
    case Json::value_t::array: return "an array";
    case Json::value_t::object: return "an object";
    case Json::value_t::discarded: return "nothing";
    default: return "a number";
  }
}

bool isTyped(const Json& value, std::string_view cls) {
  if (!value.is_object()) return false;
  const auto it = value.find("$class");
  return it != value.end() && it->is_string() && it->get<std::string>() == cls;
}

Json textToHost(const Json& value, const std::string& pointer) {
  // A typed character array (text that is not one row, or has lone surrogates) passes as it is.
  if (value.is_string() || isTyped(value, "char")) return value;
  wrongType(pointer, "text", value);
}

Json objectToHost(std::span<const Field> fields, const Json& value, const std::string& pointer);

Json valueToHost(const Field& field, const Json* value, const std::string& pointer) {
  const bool absent = value == nullptr || value->is_null();
  switch (field.kind) {
    case Kind::text: return absent ? Json(std::string(field.fallback)) : textToHost(*value, pointer);
    case Kind::flag:
      if (absent) return "true";
      if (value->is_boolean()) return value->get<bool>() ? "true" : "false";
      if (value->is_string()) return *value;
      wrongType(pointer, "true, false or text", *value);
    case Kind::object: return absent ? Json(nullptr) : objectToHost(field.fields, *value, pointer);
    case Kind::textList:
    case Kind::objectList: {
      if (absent) return nullptr;
      const bool texts = field.kind == Kind::textList;
      if (!value->is_array()) wrongType(pointer, texts ? "an array of texts" : "an array of objects", *value);
      if (value->empty()) return nullptr;
      Json out = Json::array();
      for (std::size_t i = 0; i < value->size(); ++i) {
        const std::string at = childPointer(pointer, i);
        out.push_back(texts ? textToHost((*value)[i], at) : objectToHost(field.fields, (*value)[i], at));
      }
      return out;
    }
  }
  throw std::logic_error("unknown field kind");
}

Json objectToHost(std::span<const Field> fields, const Json& value, const std::string& pointer) {
  if (!value.is_object() || value.contains("$class")) wrongType(pointer, "an object", value);
  std::vector<std::string_view> keys;
  for (const Field& f : fields) keys.push_back(f.key);
  requireKnownKeys(value, pointer, keys);
  // Every field is written, in the host structure's order, so that entries of a list share one set
  // of fields (a structure array) and the records never meet a missing field.
  Json out = Json::object();
  for (const Field& f : fields) {
    const auto it = value.find(f.key);
    out[std::string(f.key)] = valueToHost(f, it == value.end() ? nullptr : &*it, childPointer(pointer, f.key));
  }
  return out;
}

Json textFromHost(const Json* value) {
  if (value == nullptr || value->is_null()) return "";
  if (isTyped(*value, "char")) {
    const auto data = value->find("$data");
    if (data != value->end() && data->is_string()) return *data;
  }
  return *value;
}

Json objectFromHost(std::span<const Field> fields, const Json& value);

Json valueFromHost(const Field& field, const Json* value) {
  switch (field.kind) {
    case Kind::text:
    case Kind::flag: return textFromHost(value);
    case Kind::object: {
      if (value == nullptr) return nullptr;
      const std::vector<const Json*> elements = hostElements(*value);
      return elements.empty() ? Json(nullptr) : objectFromHost(field.fields, *elements.front());
    }
    case Kind::textList:
    case Kind::objectList: {
      Json out = Json::array();
      for (const Json* e : value == nullptr ? std::vector<const Json*>() : hostElements(*value)) {
        out.push_back(field.kind == Kind::textList ? textFromHost(e) : objectFromHost(field.fields, *e));
      }
      return out;
    }
  }
  throw std::logic_error("unknown field kind");
}

Json objectFromHost(std::span<const Field> fields, const Json& value) {
  Json out = Json::object();
  for (const Field& f : fields) {
    const auto it = value.find(f.key);  // end() for a value that is no object
    out[std::string(f.key)] = valueFromHost(f, it == value.end() ? nullptr : &*it);
  }
  return out;
}

}  // namespace

std::span<const RecordInfo> allRecords() { return kRecords; }

const RecordInfo& requireRecord(std::string_view name) {
  std::string known;
  for (const RecordInfo& info : kRecords) {
    if (info.name == name) return info;
    known += (known.empty() ? "" : ", ") + std::string(info.name);
  }
  throw ToolError(ExitStatus::usage, "no record named '" + std::string(name) + "'; records: " + known);
}

Json recordToHost(Record record, const Json& value, const std::string& pointer) {
  const Field& field = kRecordFields[static_cast<std::size_t>(record)];
  // A record is an object or a list of them, never absent.
  if (value.is_null()) wrongType(pointer, field.kind == Kind::object ? "an object" : "an array of objects", value);
  return valueToHost(field, &value, pointer);
}

Json recordFromHost(Record record, const Json& host) {
  const Field& field = kRecordFields[static_cast<std::size_t>(record)];
  Json out = valueFromHost(field, &host);
  // A record is never absent: a package without the part reads as the empty record.
  return out.is_null() ? objectFromHost(field.fields, Json::object()) : out;
}

std::vector<const Json*> hostElements(const Json& value) {
  std::vector<const Json*> out;
  if (value.is_null()) return out;
  if (value.is_array()) {
    for (const Json& e : value) out.push_back(&e);
  } else if (value.is_object() && value.contains("$class")) {
    if (const auto data = value.find("$data"); data != value.end() && data->is_array()) {
      for (const Json& e : *data) out.push_back(&e);
    }
  } else {
    out.push_back(&value);
  }
  return out;
}

void badInput(const std::string& pointer, const std::string& what) {
  throw ToolError(ExitStatus::badInput, (pointer.empty() ? "/" : pointer) + ": " + what);
}

void wrongType(const std::string& pointer, std::string_view expected, const Json& found) {
  badInput(pointer, "expected " + std::string(expected) + ", found " + describeJsonType(found));
}

void requireKnownKeys(const Json& object, const std::string& pointer, const std::vector<std::string_view>& keys) {
  for (const auto& [key, ignored] : object.items()) {
    if (std::find(keys.begin(), keys.end(), key) != keys.end()) continue;
    std::string expected;
    for (std::string_view k : keys) expected += (expected.empty() ? "" : ", ") + std::string(k);
    badInput(childPointer(pointer, key), "unknown key; expected one of: " + expected);
  }
}

std::string childPointer(const std::string& pointer, std::string_view key) {
  return (Json::json_pointer(pointer) / std::string(key)).to_string();
}

std::string childPointer(const std::string& pointer, std::size_t index) {
  return (Json::json_pointer(pointer) / index).to_string();
}

}  // namespace zvaddon::tool
