// Content part names back to file names. (What the index finds in a package shows in inspect's
// golden cases: cases/build_examples.t, cases/inspect_json_roundtrip.t.)
#include "package_index.h"

#include <gtest/gtest.h>


namespace zvaddon::tool {
namespace {
TEST(DecodeSegmentTest, EscapesBecomeBytes) {
  const std::pair<const char*, const char*> cases[] = {
      {"plain.m", "plain.m"},
      {"a:20b", "a b"},                   // ':XX' for ASCII a URI cannot hold
      {"%E6%97%A5", "\xE6\x97\xA5"},      // '%XX' for UTF-8 bytes
      {"trailing.:", "trailing."},        // a bare ':' ends a segment that would end in '.'
      {"a%2", "a%2"},                     // malformed escapes stay as they are
      {"a:zz", "a:zz"},
      {"x:", "x"},
  };
  for (const auto& [segment, name] : cases) EXPECT_EQ(decodeContentSegment(segment), name) << segment;
}

}  // namespace
}  // namespace zvaddon::tool
