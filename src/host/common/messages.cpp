#include "host/common/messages.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>

#include <nlohmann/json.hpp>

#include "foundation/i18n.h"

namespace zvhost {

namespace {

using Catalogue = std::map<std::string, std::string, std::less<>>;
using foundation::core::msg::MessageArgument;

std::string lenientUtf8(ustring text) {
  auto high = [&](std::size_t k) { return text[k] >= 0xD800 && text[k] <= 0xDBFF; };
  auto low = [&](std::size_t k) { return text[k] >= 0xDC00 && text[k] <= 0xDFFF; };
  for (std::size_t k = 0; k < text.size(); ++k) {
    if (high(k) && k + 1 < text.size() && low(k + 1)) {
      ++k;
    } else if (high(k) || low(k)) {
      text[k] = u'\uFFFD';
    }
  }
  return fl::i18n::to_utf8(text);
}

std::string formatArgument(const MessageArgument& argument) {
  if (const auto* n = std::get_if<std::int64_t>(&argument)) return std::to_string(*n);
  if (const auto* s = std::get_if<std::string>(&argument)) return *s;
  return lenientUtf8(std::get<ustring>(argument));
}

std::string format(const std::string& text, const std::vector<MessageArgument>& arguments) {
  std::string out;
  for (std::size_t k = 0; k < text.size();) {
    std::size_t end = k + 1;
    while (text[k] == '{' && end < text.size() && text[end] >= '0' && text[end] <= '9' && end - k <= 9) ++end;
    if (end > k + 1 && end < text.size() && text[end] == '}') {
      if (const auto n = std::stoul(text.substr(k + 1, end - k - 1)); n < arguments.size()) {
        out += formatArgument(arguments[n]);
        k = end + 1;
        continue;
      }
    }
    out += text[k++];
  }
  return out;
}

// A missing, unreadable or malformed file gives an empty catalogue; values that are not text are
// skipped.
Catalogue load(const std::string& directory, std::string_view catalogue) {
  Catalogue result;
  const std::string_view name = catalogue.substr(catalogue.rfind(':') + 1);
  std::ifstream in(std::filesystem::path(directory) / (std::string(name) + ".json"), std::ios::binary);
  const auto document = nlohmann::json::parse(in, nullptr, /*allow_exceptions=*/false);
  if (!in.is_open() || !document.is_object()) return result;
  for (const auto& [key, text] : document.items()) {
    if (text.is_string()) result.emplace(key, text.get<std::string>());
  }
  return result;
}

struct Registry {
  std::mutex mutex;
  std::optional<std::string> directory;
  std::map<std::string, std::shared_ptr<const Catalogue>, std::less<>> loaded;
};

// A function's static: a host may set the directory while its libraries are being initialised.
Registry& registry() {
  static Registry r;
  return r;
}

std::string directory(const Registry& r) {
  if (r.directory) return *r.directory;
  if (const char* env = std::getenv("ZVADDON_MESSAGE_DIR"); env != nullptr && *env != '\0') return env;
  std::error_code ec;
  if (std::filesystem::is_directory(ZV_MESSAGE_DIR_INSTALL, ec)) return ZV_MESSAGE_DIR_INSTALL;
  return ZV_MESSAGE_DIR_SOURCE;
}

}  // namespace

std::string formatMessage(const std::string& catalogue, const std::string& key,
                          const std::vector<MessageArgument>& arguments) {
  std::shared_ptr<const Catalogue> texts;
  {
    Registry& r = registry();
    std::lock_guard lock(r.mutex);
    auto& slot = r.loaded[catalogue];
    if (!slot) slot = std::make_shared<const Catalogue>(load(directory(r), catalogue));
    texts = slot;
  }
  if (const auto found = texts->find(key); found != texts->end()) return format(found->second, arguments);
  std::string fallback = catalogue + ":" + key;
  for (std::size_t k = 0; k < arguments.size(); ++k) fallback += (k == 0 ? " (" : ", ") + formatArgument(arguments[k]);
  return arguments.empty() ? fallback : fallback + ")";
}

void setMessageDirectory(std::optional<std::string> directory) {
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  r.directory = std::move(directory);
  r.loaded.clear();
}

}  // namespace zvhost
