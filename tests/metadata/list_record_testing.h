#pragma once
// Helpers for the metadata record tests: host values written as JSON, the host -> XML -> host trip,
// an outline of written XML, schema validation.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>
#include <xercesc/dom/DOMAttr.hpp>
#include <xercesc/dom/DOMNamedNodeMap.hpp>

#include "foundation/i18n.h"
#include "host/host_test_util.h"
#include "host/json/json.h"
#include "host/reference/host_error.h"
#include "opc/streams.h"
#include "opc/xml/xerces_helper.h"
#include "package/xml_part_type.h"

namespace list_records {

using Json = zvhost::json::Json;
using zvhost::testing::Owned;
using opc::model::XercesString;

inline Owned host(const std::string& json) { return zvhost::json::toOwnedArray(Json::parse(json)); }

// The shape records give back: every list of structures is an N-by-1 structure array.
inline Json asReturned(const Json& j) {
  if (j.is_array() && !j.empty() && j.front().is_object()) {
    Json fields = Json::array(), data = Json::array();
    for (const auto& [key, value] : j.front().items()) fields.push_back(key);
    for (const Json& e : j) data.push_back(asReturned(e));
    return {{"$class", "struct"}, {"$dims", {j.size(), 1}}, {"$fields", fields}, {"$data", data}};
  }
  if (!j.is_object() || j.contains("$class")) return j;
  Json out = Json::object();
  for (const auto& [key, value] : j.items()) out[key] = asReturned(value);
  return out;
}

inline ::testing::AssertionResult sameArray(const qxArray* actual, const Json& expected) {
  const Owned want = zvhost::json::toOwnedArray(expected);
  if (zvhost::json::arraysEqual(actual, want.get())) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "got  " << zvhost::json::fromArray(actual).dump() << "\nwant "
                                       << expected.dump();
}

// host -> record -> XML text -> fresh record -> host.
template <class Record>
Owned viaXml(const qxArray* input) {
  Record written(input);
  Record read;
  read.populateFromXML(written.getAsXMLString());
  return Owned(read.getStructArray());
}

// `xml` with every "NS" replaced by the record's namespace.
template <class Record>
ustring inRecordNamespace(std::string xml) {
  const std::string ns = fl::i18n::to_utf8(Record().getNamespace());
  for (auto at = xml.find("NS"); at != std::string::npos; at = xml.find("NS", at + ns.size())) {
    xml.replace(at, 2, ns);
  }
  return fl::i18n::from_utf8(xml);
}

// One line per element, indented by depth: local name, attributes in name order (namespace
// declarations left out), and the text of an element without child elements. An element outside
// `ns` is marked "{foreign}".
inline void outlineOf(const xercesc::DOMElement* e, const XercesString& ns, int depth, std::string& out) {
  out += std::string(depth, ' ') + fl::i18n::to_utf8(XercesString::toUString(e->getLocalName()));
  if (XercesString::copyOf(e->getNamespaceURI()).view() != ns.view()) out += "{foreign}";
  std::map<std::string, std::string> attributes;
  for (XMLSize_t i = 0; i < e->getAttributes()->getLength(); ++i) {
    const auto* a = e->getAttributes()->item(i);
    const std::string name = fl::i18n::to_utf8(XercesString::toUString(a->getNodeName()));
    if (name.rfind("xmlns", 0) != 0) attributes[name] = fl::i18n::to_utf8(XercesString::toUString(a->getNodeValue()));
  }
  for (const auto& [name, value] : attributes) out += " " + name + "=\"" + value + "\"";
  if (e->getFirstElementChild() == nullptr) {
    out += ": \"" + fl::i18n::to_utf8(XercesString::toUString(e->getTextContent())) + "\"";
  }
  out += "\n";
  for (auto* c = e->getFirstElementChild(); c != nullptr; c = c->getNextElementSibling()) outlineOf(c, ns, depth + 1, out);
}

template <class Record>
std::string outline(Record& record) {
  std::istringstream bytes(fl::i18n::to_utf8(record.getAsXMLString()));
  opc::StdIStreamAdaptor stream(bytes);
  const auto parser = opc::model::XercesHelper::createParser();
  const auto document = opc::model::XercesHelper::readDocumentFromStream(parser, stream, false, {}, {});
  std::string out;
  outlineOf(document->getDocumentElement(), XercesString(record.getNamespace()), 0, out);
  return out;
}

// True when xmllint accepts the document against resources/schemas/<schema>.
inline bool schemaAccepts(const std::string& schema, const ustring& xml) {
  const auto file = std::filesystem::temp_directory_path() /
                    ("zv-" + schema + "-" + std::to_string(::getpid()) + ".xml");
  std::ofstream(file, std::ios::binary) << fl::i18n::to_utf8(xml);
  const std::string command = "xmllint --noout --schema '" ZV_SOURCE_DIR "/resources/schemas/" + schema +
                              "' '" + file.string() + "' 2>/dev/null";
  const int status = std::system(command.c_str());
  std::filesystem::remove(file);
  return status == 0;
}

using zvhost::testing::hostErrorOf;


struct Case {
  Case(const char* name, std::string input, std::string expected, std::string viaXml = "")
      : name(name), input(std::move(input)), expected(std::move(expected)), viaXml(std::move(viaXml)) {}
  const char* name;
  std::string input;     // host value as JSON ("" = a default record), or XML text with "NS" for the namespace
  std::string expected;  // host value as JSON ("" = the input as records return it), or outline
  std::string viaXml;    // host value after the XML trip, when it differs from `expected`
};

// Each rule of one record, as tables.
struct RecordRules {
  RecordRules(std::string schema, std::string held, bool feedBack = true)
      : schema(std::move(schema)), held(std::move(held)), feedBack(feedBack) {}
  std::string schema;
  std::string held;                     // the record that the XML reading cases read over
  std::vector<Case> roundTrips;         // host -> record -> host, and through XML
  std::vector<Case> written;            // host -> outline of the written XML
  std::vector<Case> reading;            // XML -> host, read twice ("" = a document without root)
  std::vector<std::string> wrongInput;  // host values that raise the not-a-string host error
  std::vector<std::string> schemaRejects;
  bool feedBack = true;                 // a trip's output, fed back as input, comes back the same
};

template <class Record>
std::unique_ptr<Record> make(const std::string& json) {
  return json.empty() ? std::make_unique<Record>() : std::make_unique<Record>(host(json).get());
}

template <class Record>
void checkRecord(const RecordRules& r) {
  static const std::regex declaration(R"( xmlns(:\w+)?="[^"]*")");
  for (const Case& c : r.roundTrips) {
    SCOPED_TRACE(std::string("round trip ") + c.name);
    const Owned input = host(c.input);
    const Json want = asReturned(Json::parse(c.expected.empty() ? c.input : c.expected));
    EXPECT_TRUE(sameArray(Owned(Record(input.get()).getStructArray()).get(), want));
    const Owned trip = viaXml<Record>(input.get());
    EXPECT_TRUE(sameArray(trip.get(), c.viaXml.empty() ? want : asReturned(Json::parse(c.viaXml))));
    if (r.feedBack) {
      EXPECT_TRUE(sameArray(viaXml<Record>(trip.get()).get(), want)) << "output fed back";
    }
    EXPECT_TRUE(schemaAccepts(r.schema, Record(input.get()).getAsXMLString()));
  }
  for (const Case& c : r.written) {
    SCOPED_TRACE(std::string("written ") + c.name);
    const auto record = make<Record>(c.input);
    EXPECT_EQ(std::regex_replace(outline(*record), declaration, ""), c.expected);
    EXPECT_TRUE(schemaAccepts(r.schema, record->getAsXMLString()));
  }
  for (const Case& c : r.reading) {
    SCOPED_TRACE(std::string("reading ") + c.name);
    const auto record = make<Record>(r.held);
    for (int pass = 0; pass < 2; ++pass) {  // the second reading replaces, never accumulates
      if (c.input.empty()) {
        record->populateFromDOM(addon::packaging::createRecordDocument().get());
      } else {
        record->populateFromXML(inRecordNamespace<Record>(c.input));
      }
    }
    EXPECT_TRUE(sameArray(Owned(record->getStructArray()).get(), asReturned(Json::parse(c.expected))));
  }
  for (const std::string& input : r.wrongInput) {
    const Owned value = host(input);
    EXPECT_EQ(hostErrorOf([&] { Record record(value.get()); }), zvhost::reference::errors::notString) << input;
  }
  for (const std::string& xml : r.schemaRejects) {
    EXPECT_FALSE(schemaAccepts(r.schema, inRecordNamespace<Record>(xml))) << xml;
  }
}

}  // namespace list_records
