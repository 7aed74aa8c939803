// zvAddonComputeHash: SHA-512 of any file's bytes as base64 text; opens no package.
#include <fstream>
#include <memory>

#include <boost/filesystem/operations.hpp>

#include "foundation/crypto.h"
#include "foundation/i18n.h"
#include "gateway/frame.h"

using namespace zvaddon::gateway;

ZV_GATEWAY void zvAddonComputeHash(int outputCount, qxArray** outputs, int inputCount, const qxArray** inputs) {
  checkArgumentCounts(outputCount, inputCount, 1, 1);
  const ustring path = matrix::get_ustring(inputs[0]);
  try {
    // Made once, kept until the library is unloaded.
    static const fl::i18n::codecvt_ustring_to_string utf8("utf8");
    const std::string narrowPath = fl::i18n::to_string(utf8, path);
    // The throwing form: failures other than a missing entry pass through as Boost's own error.
    const boost::filesystem::file_type type = boost::filesystem::status(narrowPath).type();
    if (type == boost::filesystem::status_error || type == boost::filesystem::file_not_found) {
      qxErrMsgId(keys::ZVADDON_BUILTINS_FILE_NONEXISTENT(narrowPath));
    }
    std::ifstream file(narrowPath, std::ios::in | std::ios::binary);
    const foundation::crypto::CryptoEngine engine(std::make_shared<foundation::crypto::cryptopp::CryptoProvider>());
    const std::vector<std::uint8_t> digest = engine.createSHA512DigestEngine()->computeDigest(file);
    file.close();
    const ustring text = foundation::crypto::utils::base64Encode(digest);
    outputs[0] = matrix::to_zorvan(matrix::create(text.data(), text.size()));
  } catch (const opc::Exception& e) {
    qxErrMsgId(keys::ZVADDON_BUILTINS_ERROR_COMPUTE_HASH(path, e.what()));
  }
}
