// Process-wide state of the libraries below the add-on library, set up once when Octave loads the
// binding (with the first extension file that needs it) and released when Octave unloads it.
//
// Xerces-C and xml-security-c count their initialisations, so the add-on library's own on-demand
// initialisation only adds to the count: no call pays for setting them up or tearing them down.
// OpenSSL is set up here too, but not cleaned up: other libraries in Octave's process share it, and
// OpenSSL releases its state itself at exit.
#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

#include <openssl/crypto.h>
#include <xercesc/util/PlatformUtils.hpp>
#include <xsec/utils/XSECPlatformUtils.hpp>

#include "host/common/messages.h"

namespace {

// The message catalogue beside the binding's library, when it was installed there, is preferred to the
// default places; an explicit ZVADDON_MESSAGE_DIR still wins.
void useCatalogueBesideLibrary() {
  if (const char* env = std::getenv("ZVADDON_MESSAGE_DIR"); env != nullptr && *env != '\0') return;
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&useCatalogueBesideLibrary), &info) == 0 || info.dli_fname == nullptr) return;
  std::error_code ec;
  const auto folder = std::filesystem::path(info.dli_fname).parent_path() / "messages";
  if (std::filesystem::is_regular_file(folder / "zvaddon_builtins.json", ec)) {
    zvhost::setMessageDirectory(folder.string());
  }
}

class Runtime {
 public:
  // Never throws: a library that cannot be set up here is set up on demand by the add-on library, which
  // reports the failure as an error of that call instead of refusing to load.
  Runtime() noexcept {
    try {
      xercesc::XMLPlatformUtils::Initialize();
      xerces_ = true;
      XSECPlatformUtils::Initialise();
      xmlSecurity_ = true;
    } catch (...) {
    }
    OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CONFIG | OPENSSL_INIT_ADD_ALL_DIGESTS | OPENSSL_INIT_ADD_ALL_CIPHERS |
                            OPENSSL_INIT_LOAD_CRYPTO_STRINGS,
                        nullptr);
    try {
      useCatalogueBesideLibrary();
    } catch (...) {
    }
  }

  // xml-security-c before Xerces, whose services it uses.
  ~Runtime() {
    if (xmlSecurity_) XSECPlatformUtils::Terminate();
    if (xerces_) xercesc::XMLPlatformUtils::Terminate();
  }

  Runtime(const Runtime&) = delete;
  Runtime& operator=(const Runtime&) = delete;

 private:
  bool xerces_ = false;
  bool xmlSecurity_ = false;
};

const Runtime runtime;

}  // namespace
