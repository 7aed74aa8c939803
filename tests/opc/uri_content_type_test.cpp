#include <gtest/gtest.h>

#include "opc/exception.h"
#include "opc/model/content_type.h"
#include "opc/model/uri.h"
#include "opc_test_support.h"

namespace opc::model {
namespace {

using test::u8;

TEST(URITest, IrisBecomeUrisAndBadCharactersAreRefused) {
  EXPECT_EQ(URI(u"/a/\u0446.xml").toString(), u"/a/%D1%86.xml");
  EXPECT_EQ(URI(u"/a/%d1%86.xml"), URI(u"/a/%D1%86.xml"));
  EXPECT_EQ(URI(u"/\U0001F600").toString(), u"/%F0%9F%98%80");
  for (const char16_t* bad : {u"a b", u"a\"b", u"a<b", u"a\\b", u"a{b", u"a|b", u"a%", u"a%zz", u"a\u0007"}) {
    SCOPED_TRACE(u8(bad));
    EXPECT_THROW(URI{bad}, Exception);
  }
  EXPECT_TRUE(URI(u"http://example.com/").isAbsolute());
  EXPECT_FALSE(URI(u"/a:b").isAbsolute());
  EXPECT_FALSE(URI(u"a/b:c").isAbsolute());
}

TEST(ContentTypeTest, MediaTypeGrammar) {
  const struct {
    const char16_t* text;
    bool valid;
  } cases[] = {
      {u"application/xml", true},
      {u"application/vnd.openxmlformats-package.relationships+xml", true},
      {u"text/plain;charset=utf-8", true},
      {u"text/plain;a=\"quoted; value\"", true},
      {u"", false},
      {u"application / xml", false},
      {u"text/plain;charset = utf-8", false},
      {u"text/plain;a=\"open", false},
      {u"text/pl\u00e4in", false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(u8(c.text));
    if (c.valid) {
      EXPECT_NO_THROW(ContentType{c.text});
    } else {
      EXPECT_THROW(ContentType{c.text}, Exception);
    }
  }
}

TEST(ContentTypeTest, EqualityIgnoresCaseExceptInParameterValues) {
  EXPECT_EQ(ContentType(u"Application/XML"), ContentType(u"application/xml"));
  EXPECT_EQ(ContentType(u"text/plain;Charset=x"), ContentType(u"text/plain; charset=x"));
  EXPECT_FALSE(ContentType(u"text/plain;charset=X") == ContentType(u"text/plain;charset=x"));
  EXPECT_FALSE(ContentType(u"text/plain") == ContentType(u"text/plain;charset=x"));
  EXPECT_EQ(ContentType(u"Image/PNG").toString(), u"Image/PNG");  // spelled as given
}

}  // namespace
}  // namespace opc::model
