// zvAddonSetExamples, zvAddonGetExamples: the examples record across the host.
#include "metadata/examples.h"

#include "gateway/frame.h"

using addon::packaging::AddonExamples;
using addon::packaging::AddonPackage;
using namespace zvaddon::gateway;

// The package object comes before the record when storing and after it when reading, the reverse of
// the shared frames; both exist before the package is opened, so a malformed input never opens it.
ZV_GATEWAY void zvAddonSetExamples(int outputCount, qxArray** /*outputs*/, int inputCount, const qxArray** inputs) {
  checkArgumentCounts(outputCount, inputCount, 0, 2);
  const ustring path = matrix::get_ustring(inputs[0]);
  requireStructOrEmpty(inputs[1]);
  guarded<keys::ZVADDON_BUILTINS_ERROR_SET_EXAMPLES>(path, [&] {
    AddonPackage package(path);
    AddonExamples record(inputs[1]);
    package.getPackage().open(kModify);
    package.addXMLPart(record);
    package.getPackage().close();
  });
}

ZV_GATEWAY void zvAddonGetExamples(int outputCount, qxArray** outputs, int inputCount, const qxArray** inputs) {
  checkArgumentCounts(outputCount, inputCount, 1, 1);
  const ustring path = matrix::get_ustring(inputs[0]);
  guarded<keys::ZVADDON_BUILTINS_ERROR_GET_EXAMPLES>(path, [&] {
    AddonExamples record;
    withPackage(path, kRead, [&](AddonPackage& package) { package.getXMLPart(record); });
    outputs[0] = record.getStructArray();
  });
}
