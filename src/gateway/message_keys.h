#pragma once
// The error keys of the catalogue "zvaddon_builtins:zvaddon_builtins": one class per key, named as the
// key, whose constructor takes exactly that key's arguments in catalogue order. Paths are ustring,
// library messages `const char*` (copied byte for byte; null gives ""), the hashed file's path narrow.
#include <string>

#include "foundation/message.h"

namespace zvaddon_builtins::zvaddon_builtins {

inline constexpr char kCatalog[] = "zvaddon_builtins:zvaddon_builtins";

#define ZV_MESSAGE_KEY(NAME, PARAMS, ARGS)                                                        \
  class NAME : public foundation::core::msg::BuiltinMessage {                                     \
   public:                                                                                        \
    explicit NAME PARAMS                                                                          \
        : BuiltinMessage(kCatalog, sizeof kCatalog - 1, #NAME, sizeof #NAME - 1, makeArguments ARGS) {} \
  };

#define ZV_PATH_KEY(NAME) ZV_MESSAGE_KEY(NAME, (const ustring& path, const char* message), (path, message))

ZV_MESSAGE_KEY(ZVADDON_BUILTINS_ERROR_NON_STRUCT, (), ())
ZV_MESSAGE_KEY(ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND, (const ustring& path), (path))
ZV_PATH_KEY(ZVADDON_BUILTINS_ERROR_CREATE)
ZV_PATH_KEY(ZVADDON_BUILTINS_ERROR_SET_PROPERTIES)
ZV_PATH_KEY(ZVADDON_BUILTINS_ERROR_GET_PROPERTIES)
ZV_PATH_KEY(ZVADDON_BUILTINS_ERROR_ADD_FILES)
ZV_PATH_KEY(ZVADDON_BUILTINS_ERROR_ADD_FOLDERS)
ZV_MESSAGE_KEY(ZVADDON_BUILTINS_ERROR_EXTRACT_ALL_FILES,
               (const ustring& path, const ustring& destination, const char* message), (path, destination, message))
ZV_PATH_KEY(ZVADDON_BUILTINS_ERROR_GET_FILE_LIST)
ZV_PATH_KEY(ZVADDON_BUILTINS_ERROR_SET_REVISION_HISTORY)
ZV_PATH_KEY(ZVADDON_BUILTINS_ERROR_GET_REVISION_HISTORY)
// The image comes before the package here, the reverse of the extraction key: kept as established.
ZV_MESSAGE_KEY(ZVADDON_BUILTINS_ERROR_SET_SCREENSHOT,
               (const ustring& imagePath, const ustring& path, const char* message), (imagePath, path, message))
ZV_PATH_KEY(ZVADDON_BUILTINS_ERROR_GET_SCREENSHOT)
ZV_PATH_KEY(ZVADDON_BUILTINS_ERROR_SET_APP_INSTALL_LIST)
ZV_PATH_KEY(ZVADDON_BUILTINS_ERROR_GET_APP_INSTALL_LIST)
ZV_PATH_KEY(ZVADDON_BUILTINS_ERROR_SET_EXAMPLES)
ZV_PATH_KEY(ZVADDON_BUILTINS_ERROR_GET_EXAMPLES)
ZV_PATH_KEY(ZVADDON_BUILTINS_ERROR_SET_SYSTEM_REQS)
ZV_PATH_KEY(ZVADDON_BUILTINS_ERROR_GET_SYSTEM_REQS)
ZV_PATH_KEY(ZVADDON_BUILTINS_ERROR_SET_INSTRUCTION_SETS)
ZV_PATH_KEY(ZVADDON_BUILTINS_ERROR_SIGN)
ZV_PATH_KEY(ZVADDON_BUILTINS_ERROR_SET_LICENSE)
ZV_PATH_KEY(ZVADDON_BUILTINS_ERROR_GET_LICENSE)
ZV_PATH_KEY(ZVADDON_BUILTINS_ERROR_SET_CONFIGURATION)
ZV_PATH_KEY(ZVADDON_BUILTINS_ERROR_GET_CONFIGURATION)
ZV_PATH_KEY(ZVADDON_BUILTINS_ERROR_COMPUTE_HASH)
ZV_MESSAGE_KEY(ZVADDON_BUILTINS_FILE_NONEXISTENT, (const std::string& utf8Path), (utf8Path))

#undef ZV_PATH_KEY
#undef ZV_MESSAGE_KEY

}  // namespace zvaddon_builtins::zvaddon_builtins
