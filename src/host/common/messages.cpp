#include "host/reference/messages.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <utility>

#include <nlohmann/json.hpp>

#include "foundation/i18n.h"

namespace zvhost::reference {

namespace {

bool isHighSurrogate(char16_t c) { return c >= 0xD800 && c <= 0xDBFF; }
bool isLowSurrogate(char16_t c) { return c >= 0xDC00 && c <= 0xDFFF; }

// A message must be shown whatever its arguments hold, so lone surrogates are replaced rather than
// refused.
std::string lenientUtf8(const ustring& text) {
  try {
    return fl::i18n::to_utf8(text);
  } catch (const fl::i18n::conversion_error&) {
  }
  ustring repaired;
  repaired.reserve(text.size());
  for (std::size_t k = 0; k < text.size(); ++k) {
    const char16_t c = text[k];
    if (isHighSurrogate(c) && k + 1 < text.size() && isLowSurrogate(text[k + 1])) {
      repaired += c;
      repaired += text[++k];
    } else if (isHighSurrogate(c) || isLowSurrogate(c)) {
      repaired += u'\uFFFD';
    } else {
      repaired += c;
    }
  }
  return fl::i18n::to_utf8(repaired);
}

struct Registry {
  std::mutex mutex;
  std::optional<std::string> directory;
  std::map<std::string, std::shared_ptr<const MessageCatalog>, std::less<>> loaded;
};

Registry& registry() {
  static Registry r;
  return r;
}

std::string defaultDirectory() {
  if (const char* env = std::getenv("ZVADDON_MESSAGE_DIR"); env != nullptr && *env != '\0') return env;
  std::error_code ec;
  if (std::filesystem::is_directory(ZV_MESSAGE_DIR_INSTALL, ec)) return ZV_MESSAGE_DIR_INSTALL;
  return ZV_MESSAGE_DIR_SOURCE;
}

std::string directoryLocked(const Registry& r) { return r.directory ? *r.directory : defaultDirectory(); }

}  // namespace

MessageCatalog MessageCatalog::load(const std::string& directory, std::string_view catalogue) {
  MessageCatalog result;
  const auto colon = catalogue.rfind(':');
  const std::string_view name = colon == std::string_view::npos ? catalogue : catalogue.substr(colon + 1);
  std::ifstream in(std::filesystem::path(directory) / (std::string(name) + ".json"), std::ios::binary);
  if (!in) return result;
  const auto document = nlohmann::json::parse(in, nullptr, /*allow_exceptions=*/false);
  if (!document.is_object()) return result;
  for (const auto& [key, text] : document.items()) {
    if (text.is_string()) result.texts_.emplace(key, text.get<std::string>());
  }
  return result;
}

std::optional<std::string> MessageCatalog::format(
    const std::string& key, const std::vector<foundation::core::msg::MessageArgument>& arguments) const {
  const auto found = texts_.find(key);
  if (found == texts_.end()) return std::nullopt;
  const std::string& text = found->second;
  std::string out;
  out.reserve(text.size());
  for (std::size_t k = 0; k < text.size();) {
    if (text[k] == '{') {
      std::size_t end = k + 1;
      while (end < text.size() && text[end] >= '0' && text[end] <= '9' && end - k <= 9) ++end;
      if (end > k + 1 && end < text.size() && text[end] == '}') {
        const auto n = std::stoul(text.substr(k + 1, end - k - 1));
        if (n < arguments.size()) {
          out += formatArgument(arguments[n]);
          k = end + 1;
          continue;
        }
      }
    }
    out += text[k++];
  }
  return out;
}

std::string formatArgument(const foundation::core::msg::MessageArgument& argument) {
  struct Visitor {
    std::string operator()(std::int64_t v) const { return std::to_string(v); }
    std::string operator()(const std::string& v) const { return v; }
    std::string operator()(const ustring& v) const { return lenientUtf8(v); }
  };
  return std::visit(Visitor{}, argument);
}

std::string formatMessage(const std::string& catalogue, const std::string& key,
                          const std::vector<foundation::core::msg::MessageArgument>& arguments) {
  std::shared_ptr<const MessageCatalog> texts;
  {
    Registry& r = registry();
    std::lock_guard lock(r.mutex);
    auto found = r.loaded.find(catalogue);
    if (found == r.loaded.end()) {
      auto loaded = std::make_shared<const MessageCatalog>(MessageCatalog::load(directoryLocked(r), catalogue));
      found = r.loaded.emplace(catalogue, std::move(loaded)).first;
    }
    texts = found->second;
  }
  if (auto text = texts->format(key, arguments)) return std::move(*text);
  std::string fallback = catalogue + ":" + key;
  for (std::size_t k = 0; k < arguments.size(); ++k) {
    fallback += k == 0 ? " (" : ", ";
    fallback += formatArgument(arguments[k]);
  }
  if (!arguments.empty()) fallback += ")";
  return fallback;
}

std::string messageDirectory() {
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  return directoryLocked(r);
}

void setMessageDirectory(std::optional<std::string> directory) {
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  r.directory = std::move(directory);
  r.loaded.clear();
}

}  // namespace zvhost::reference
