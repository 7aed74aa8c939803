#pragma once
// The examples record: the example files an add-on offers, grouped into named categories, held as a
// host structure array and as the part "/metadata/examples.xml".
#include <cstdint>
#include <vector>

#include "metadata/host_fields.h"

namespace addon::packaging {

// One example and its files. Paths are kept as given, never checked.
class ZV_API Example : public RecordEntry {
 public:
  Example() = default;
  // Reads "name", "type", "source", "main", "thumbnail" of element 0 as text, then "images" as a
  // cell array of texts when it is present. A missing or non-text field raises the host's
  // conversion error.
  explicit Example(const qxArray* element);
  // Reads an "example" element. Each "file" child is sorted by its exact, case-sensitive "type":
  // a later "source", "main" or "thumbnail" replaces an earlier one, every "image" is appended,
  // any other type is ignored. Absent attributes read as empty.
  explicit Example(const xercesc::DOMElement* element);

  // Writes the attributes and the "file" children (source, main, thumbnail, then images; an empty
  // path writes nothing) into `element`, an "example" element already in the document.
  void populateXMLNode(xercesc::DOMElement* element, ustring ns) const;

  // An empty structure array of `count` elements with the six example fields; the caller owns it.
  [[nodiscard]] static matrix::unique_qxarray_ptr createStructArray(std::uint64_t count);
  // Fills element `index` (0-based) of an array made by createStructArray. "images" becomes a 1-by-k
  // cell array, or stays unset when there are none.
  void addRow(qxArray* array, std::uint64_t index) const;

  ustring name;
  ustring type;
  ustring source;
  ustring main;
  ustring thumbnail;
  std::vector<ustring> images;
};

// A named group of examples. Names are not keys: two categories of one name stay two.
class ZV_API ExampleCategory : public RecordEntry {
 public:
  ustring name;
  std::vector<Example> examples;
};

// Categories and their examples keep input order; nothing is merged, sorted or de-duplicated.
class ZV_API AddonExamples : public XMLPartType {
 public:
  AddonExamples();
  // One category per element of the host structure array, in element order; an array without
  // elements gives none. Each element needs a text "name"; "examples" may be absent or empty.
  explicit AddonExamples(const qxArray* categories);

  // A new structure array ("name", "examples") with one element per category; a category without
  // examples leaves "examples" unset. The caller owns it.
  [[nodiscard]] qxArray* getStructArray() const;

  void buildDOM(opc::model::DocumentPtr& document) override;
  // Replaces the categories with the document's "exampleCategory" elements; the root's name is not
  // checked and a document without a root gives none.
  void populateFromDOM(xercesc::DOMDocument* document) override;

  std::vector<ExampleCategory> categories;
};

}  // namespace addon::packaging
