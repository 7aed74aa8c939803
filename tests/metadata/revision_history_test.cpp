#include "metadata/revision_history.h"

#include "list_record_testing.h"

namespace addon::packaging {
namespace {

using namespace list_records;

struct Case {
  const char* name;
  std::string input;     // host value as JSON, or XML text with "NS" for the namespace
  std::string expected;  // host value as JSON ("" = the input as records return it) or outline
};

const char* kNoRevisions = R"({"$class":"struct","$dims":[0,1],"$fields":["date","version","description"]})";

TEST(AddonRevisionHistoryTest, HostValuesSurviveXmlRoundTrip) {
  const Case cases[] = {
      {"OutOfDateOrderAndDuplicatesKept",
       R"([{"date":"2021-05-01","version":"2.0","description":"b"},{"date":"2019-01-01","version":"1.0","description":"a"},)"
       R"({"date":"2019-01-01","version":"1.0","description":"a"}])", ""},
      {"TextNeverParsed", R"([{"date":"last spring","version":"v-next","description":""}])", ""},
      {"NonAsciiMultiLine", R"([{"date":"١٤٤٥","version":"β","description":"Grüße\nzweite Zeile\r\n\t<&>\"𝄞"}])", ""},
      {"EmptyDoubleGivesNoRevisions", "null", kNoRevisions},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const Owned input = host(c.input);
    const Json want = asReturned(Json::parse(c.expected.empty() ? c.input : c.expected));
    EXPECT_TRUE(sameArray(Owned(AddonRevisionHistory(input.get()).getStructArray()).get(), want));
    const Owned trip = viaXml<AddonRevisionHistory>(input.get());
    EXPECT_TRUE(sameArray(trip.get(), want));
    EXPECT_TRUE(sameArray(viaXml<AddonRevisionHistory>(trip.get()).get(), want)) << "output fed back as input";
  }
}

TEST(AddonRevisionHistoryTest, XmlReadingRules) {
  const Case cases[] = {
      {"MissingDescriptionAndAttributesReadEmpty", R"(<revisionHistory xmlns="NS"><revision/></revisionHistory>)",
       R"([{"date":"","version":"","description":""}])"},
      {"FirstDescriptionAndRevisionsOnly",
       R"(<revisionHistory xmlns="NS"><revision date="d" version="v"><description>one</description>)"
       R"(<description>two</description></revision><note/><revision xmlns="urn:x" date="x"/></revisionHistory>)",
       R"([{"date":"d","version":"v","description":"one"}])"},
      {"BareRootGivesNoRevisions", R"(<revisionHistory xmlns="NS"/>)", kNoRevisions},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    AddonRevisionHistory record(host(R"([{"date":"held","version":"held","description":"held"}])").get());
    record.populateFromXML(inRecordNamespace<AddonRevisionHistory>(c.input));
    record.populateFromXML(inRecordNamespace<AddonRevisionHistory>(c.input));
    EXPECT_TRUE(sameArray(Owned(record.getStructArray()).get(), asReturned(Json::parse(c.expected))));
  }
}

TEST(AddonRevisionHistoryTest, WrittenXmlShape) {
  const Case cases[] = {
      {"EmptyValuesStillWritten", R"([{"date":"","version":"","description":""},{"date":"d","version":"v","description":"t"}])",
       "revisionHistory\n revision date=\"\" version=\"\"\n  description: \"\"\n"
       " revision date=\"d\" version=\"v\"\n  description: \"t\"\n"},
      {"EmptyInputWritesBareRoot", "null", "revisionHistory: \"\"\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    AddonRevisionHistory record(host(c.input).get());
    EXPECT_EQ(outline(record), c.expected);
    EXPECT_TRUE(schemaAccepts("revision_history.xsd", record.getAsXMLString()));
  }
  for (const char* xml : {R"(<revisionHistory xmlns="NS"><revision date="d" version="v"/></revisionHistory>)",
                          R"(<revisionHistory xmlns="NS"><revision version="v"><description/></revision></revisionHistory>)"}) {
    EXPECT_FALSE(schemaAccepts("revision_history.xsd", inRecordNamespace<AddonRevisionHistory>(xml))) << xml;
  }
}

TEST(AddonRevisionHistoryTest, WrongHostInputRaisesHostError) {
  for (const char* input : {R"([{"date":20240101,"version":"1","description":""}])",
                            R"([{"date":"d","version":"1"}])",
                            R"([{"date":"d","version":"1","description":["a","b"]}])"}) {
    const Owned value = host(input);
    EXPECT_EQ(hostErrorOf([&] { AddonRevisionHistory record(value.get()); }), zvhost::reference::errors::notString)
        << input;
  }
}

}  // namespace
}  // namespace addon::packaging
