// Arbitrary text read by every metadata record. Whatever a record accepts must survive its own round
// trip: record -> XML -> fresh record gives the same host structure.
#include <memory>

#include "foundation/i18n.h"
#include "fuzz_support.h"
#include "host/json/json.h"
#include "metadata/addon_properties.h"
#include "metadata/app_install_list.h"
#include "metadata/configuration.h"
#include "metadata/examples.h"
#include "metadata/license.h"
#include "metadata/revision_history.h"
#include "metadata/system_requirements.h"

namespace {

using namespace addon::packaging;

template <class Record>
void roundTrip(const ustring& xml) {
  Record record;
  try {
    record.populateFromXML(xml);
  } catch (const std::exception&) {
    return;  // rejected input
  }
  const matrix::unique_qxarray_ptr first(record.getStructArray());
  Record again;
  again.populateFromXML(record.getAsXMLString());
  const matrix::unique_qxarray_ptr second(again.getStructArray());
  if (!zvhost::json::arraysEqual(first.get(), second.get())) {
    std::fprintf(stderr, "round trip changed the record:\n%s\n%s\n", zvhost::json::fromArray(first.get()).dump().c_str(),
                 zvhost::json::fromArray(second.get()).dump().c_str());
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ustring xml;
  try {
    xml = fl::i18n::to_ustring(fl::i18n::codecvt_string_to_ustring("UTF-8"),
                               {reinterpret_cast<const char*>(data), size});
  } catch (const std::exception&) {
    return 0;
  }
  roundTrip<AddonProperties>(xml);
  roundTrip<AddonSystemRequirements>(xml);
  roundTrip<AddonConfiguration>(xml);
  roundTrip<AddonLicense>(xml);
  roundTrip<AddonExamples>(xml);
  roundTrip<AddonRevisionHistory>(xml);
  roundTrip<AddonAppInstallList>(xml);
  return 0;
}
