#include "metadata/revision_history.h"

#include "list_record_testing.h"

namespace addon::packaging {
namespace {

using namespace list_records;

const char* kNoRevisions = R"({"$class":"struct","$dims":[0,1],"$fields":["date","version","description"]})";

TEST(AddonRevisionHistoryTest, RecordRules) {
  RecordRules rules("revision_history.xsd", R"([{"date":"held","version":"held","description":"held"}])");
  rules.roundTrips = {
      {"OutOfDateOrderAndDuplicatesKept",
       R"([{"date":"2021-05-01","version":"2.0","description":"b"},{"date":"2019-01-01","version":"1.0","description":"a"},)"
       R"({"date":"2019-01-01","version":"1.0","description":"a"}])", ""},
      {"TextNeverParsed", R"([{"date":"last spring","version":"v-next","description":""}])", ""},
      {"NonAsciiMultiLine", R"([{"date":"١٤٤٥","version":"β","description":"Grüße\nzweite Zeile\r\n\t<&>\"𝄞"}])", ""},
      {"EmptyDoubleGivesNoRevisions", "null", kNoRevisions},
  };
  rules.written = {
      {"EmptyValuesStillWritten", R"([{"date":"","version":"","description":""},{"date":"d","version":"v","description":"t"}])",
       "revisionHistory\n revision date=\"\" version=\"\"\n  description: \"\"\n"
       " revision date=\"d\" version=\"v\"\n  description: \"t\"\n"},
      {"EmptyInputWritesBareRoot", "null", "revisionHistory: \"\"\n"},
  };
  rules.reading = {
      {"MissingDescriptionAndAttributesReadEmpty", R"(<revisionHistory xmlns="NS"><revision/></revisionHistory>)",
       R"([{"date":"","version":"","description":""}])"},
      {"FirstDescriptionAndRevisionsOnly",
       R"(<revisionHistory xmlns="NS"><revision date="d" version="v"><description>one</description>)"
       R"(<description>two</description></revision><note/><revision xmlns="urn:x" date="x"/></revisionHistory>)",
       R"([{"date":"d","version":"v","description":"one"}])"},
      {"BareRootGivesNoRevisions", R"(<revisionHistory xmlns="NS"/>)", kNoRevisions},
  };
  rules.wrongInput = {
      R"([{"date":20240101,"version":"1","description":""}])",
      R"([{"date":"d","version":"1"}])",
      R"([{"date":"d","version":"1","description":["a","b"]}])",
  };
  rules.schemaRejects = {
      R"(<revisionHistory xmlns="NS"><revision date="d" version="v"/></revisionHistory>)",
      R"(<revisionHistory xmlns="NS"><revision version="v"><description/></revision></revisionHistory>)",
  };
  checkRecord<AddonRevisionHistory>(rules);
}

}  // namespace
}  // namespace addon::packaging
