// zvAddonSetScreenshot, zvAddonGetScreenshot.
#include "foundation/crypto.h"
#include "gateway/frame.h"

using namespace zvaddon::gateway;

ZV_GATEWAY void zvAddonSetScreenshot(int outputCount, qxArray** /*outputs*/, int inputCount, const qxArray** inputs) {
  checkArgumentCounts(outputCount, inputCount, 0, 2);
  const ustring path = matrix::get_ustring(inputs[0]);
  const ustring imagePath = matrix::get_ustring(inputs[1]);
  guarded(
      path, [&] { withPackage(path, kModify, [&](AddonPackage& package) { package.setScreenshot(imagePath); }); },
      [&](const char* what) { return keys::ZVADDON_BUILTINS_ERROR_SET_SCREENSHOT(imagePath, path, what); });
}

// The image comes back as standard padded base64 text.
ZV_GATEWAY void zvAddonGetScreenshot(int outputCount, qxArray** outputs, int inputCount, const qxArray** inputs) {
  checkArgumentCounts(outputCount, inputCount, 1, 1);
  const ustring path = matrix::get_ustring(inputs[0]);
  guarded<keys::ZVADDON_BUILTINS_ERROR_GET_SCREENSHOT>(path, [&] {
    std::vector<std::uint8_t> bytes;
    withPackage(path, kRead, [&](AddonPackage& package) { bytes = package.getScreenshot(); });
    outputs[0] = qxCreateString(foundation::crypto::utils::base64EncodeNarrow(bytes).c_str());
  });
}
