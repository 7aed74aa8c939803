#pragma once
// What the fault tests share: a package big enough that writing it takes a while, the writing calls
// they interrupt (each with the check that tells its result from the old file), and looks at the
// package from outside (its ZIP entries).
#include <zip.h>

#include <cstring>
#include <functional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "gateway/zvaddon.h"
#include "support/gateway_call.h"

namespace zvtest::hardening {

// Bytes that deflate slowly and poorly, so that a write of them is long enough to be interrupted.
inline std::string noise(std::size_t size, unsigned seed) {
  std::mt19937_64 random(seed);
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i + 8 <= size; i += 8) {
    const std::uint64_t word = random();
    std::memcpy(&bytes[i], &word, 8);
  }
  return bytes;
}

// The ZIP entry names, or nothing when the file is no readable archive.
inline std::set<std::string> entryNames(const std::string& path) {
  int code = 0;
  zip_t* zip = zip_open(path.c_str(), ZIP_RDONLY, &code);
  if (zip == nullptr) return {};
  std::set<std::string> names;
  for (zip_int64_t i = 0; i < zip_get_num_entries(zip, 0); ++i) names.insert(zip_get_name(zip, i, 0));
  zip_discard(zip);
  return names;
}

inline const Json kRequirements = {
    {"productDependency", Json::array({{{"name", "Signal"}, {"version", "9.1"}, {"identifier", "SG"}}})},
    {"platformCompatibility", {{"win", "true"}, {"linux", "true"}, {"mac", "false"}, {"ZORVANOnline", "true"}}},
    {"releaseCompatibility", {{"start", "R2019b"}, {"end", "R2024a"}}}};

// A package holding a large content file and system requirements.
inline void makePackage(const std::string& path, const std::string& content, std::size_t size) {
  writeBytes(content, noise(size, 7));
  callOk(zvAddonCreate, {path, properties()});
  callOk(zvAddonAddFiles, {path, Json{content}, Json{"data/big.bin"}});
  callOk(zvAddonSetSystemRequirements, {path, kRequirements});
}

// A call that rewrites the package, and how to recognise its result.
struct Write {
  const char* name;
  const char* key;  // its error key
  std::function<CallResult(const std::string& package, const std::string& newFile)> run;
  std::function<bool(const std::string& package)> done;
};

inline std::vector<Write> writes() {
  static const Json kChanged = [] {
    Json changed = kRequirements;
    changed["releaseCompatibility"]["end"] = "R2030b";
    return changed;
  }();
  return {
      {"AddFiles", "ZVADDON_BUILTINS_ERROR_ADD_FILES",
       [](const std::string& p, const std::string& f) { return call(zvAddonAddFiles, {p, Json{f}, Json{"data/new.bin"}}); },
       [](const std::string& p) { return entryNames(p).contains("fsroot/data/new.bin"); }},
      {"SetRecord", "ZVADDON_BUILTINS_ERROR_SET_SYSTEM_REQS",
       [](const std::string& p, const std::string&) { return call(zvAddonSetSystemRequirements, {p, kChanged}); },
       [](const std::string& p) {
         const CallResult r = call(zvAddonGetSystemRequirements, {p}, 1);
         return r.ok() && r.outputs.at(0)["releaseCompatibility"]["end"] == "R2030b";
       }},
      {"Sign", "ZVADDON_BUILTINS_ERROR_SIGN",
       [](const std::string& p, const std::string&) { return call(zvAddonSign, {p}); },
       [](const std::string& p) { return entryNames(p).contains("_xmlsignatures/sig1.xml"); }},
  };
}

// Every reading call succeeds on the package.
inline void expectOpensCleanly(const std::string& path) {
  for (qxFunction f : {zvAddonGetProperties, zvAddonGetFileList, zvAddonGetSystemRequirements}) {
    const CallResult r = call(f, {path}, 1);
    EXPECT_TRUE(r.ok()) << r.key() << ": " << (r.error ? r.error->message() : "");
  }
}

}  // namespace zvtest::hardening
