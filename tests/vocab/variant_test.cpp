#include <gtest/gtest.h>

#include "qzxl/convert.hpp"
#include "qzxl/object.hpp"
#include "qzxl/variant.hpp"

namespace qz {
namespace {

TEST(Variant, KindsAreDistinctAndCompareByValue) {
  EXPECT_TRUE(Variant().is_empty());
  EXPECT_TRUE(Variant::null().is_null());
  EXPECT_TRUE(Variant::missing().is_missing());
  EXPECT_EQ(Variant(int16_t{5}).type(), Variant::Type::Integer);
  EXPECT_EQ(Variant(5).type(), Variant::Type::Long);
  EXPECT_EQ(Variant(5.0).type(), Variant::Type::Double);
  // A Long 5 and a Double 5 are different values of a Variant.
  EXPECT_NE(Variant(5), Variant(5.0));
  EXPECT_EQ(Variant(u"a"), Variant(String(u"a")));
  EXPECT_NE(Variant(true), Variant(-1));
}

// The names a script's TypeName shows, which also appear in type-mismatch messages.
TEST(Variant, TypeNamesAreTheOnesScriptsSee) {
  const std::vector<std::pair<Variant, const char16_t*>> cases = {
      {Variant(), u"Empty"},
      {Variant::null(), u"Null"},
      {Variant::missing(), u"Error"},
      {Variant(false), u"Boolean"},
      {Variant(int16_t{1}), u"Integer"},
      {Variant(1), u"Long"},
      {Variant(1.5), u"Double"},
      {Variant(Date{2.0}), u"Date"},
      {Variant(u""), u"String"},
      {Variant(ErrorCode{cell_error::na}), u"Error"},
      {Variant(one_based({})), u"Variant()"}};
  for (const auto& [v, name] : cases) EXPECT_EQ(type_name(v), name) << to_utf8(name);
}

TEST(Variant, ArraysCopyDeeplyAndCheckTheirBounds) {
  Variant a(one_based({Variant(1), Variant(2)}));
  Variant b = a;
  b.array().at(1) = Variant(9);
  EXPECT_EQ(a.array().at(1), Variant(1));
  EXPECT_EQ(a.array().upper(), 2);
  EXPECT_THROW(a.array().at(0), Error);
  EXPECT_THROW(a.array().at(3), Error);
  EXPECT_EQ(Array().upper(), -1);
}

TEST(Variant, ExactAccessorsRaiseTypeMismatch) {
  try {
    Variant(u"x").dbl();
    FAIL();
  } catch (const Error& e) {
    EXPECT_EQ(e.code(), err::type_mismatch);
  }
  EXPECT_THROW(Variant(1).object(), Error);
}

class Thing : public Object {
 public:
  String type_name() const override { return u"Thing"; }
};

TEST(Variant, HoldsObjectsByReferenceAndKnowsNothing) {
  auto t = std::make_shared<Thing>();
  Variant v(t);
  Variant w = v;
  EXPECT_EQ(w.object(), v.object());
  EXPECT_EQ(v.as<Thing>(), t);
  EXPECT_TRUE(Variant(ObjectPtr()).is_nothing());
  EXPECT_EQ(type_name(v), u"Thing");
  EXPECT_EQ(type_name(Variant(ObjectPtr())), u"Nothing");
  // Members are found whatever the case of their ASCII letters, and only so.
  EXPECT_TRUE(same_member(u"Count", u"Count") && same_member(u"count", u"COUNT"));
  EXPECT_TRUE(same_member(u"Item_2", u"ITEM_2") && same_member(u"AaZz", u"aAzZ"));
  EXPECT_FALSE(same_member(u"Count", u"Counts") || same_member(u"Count", u"Mount"));
  EXPECT_FALSE(same_member(u"a[", u"A{") || same_member(u"a@", u"A`"));
  // Late binding of an unknown member reports error 438.
  try {
    late::get(t, u"Color");
    FAIL();
  } catch (const Error& e) {
    EXPECT_EQ(e.code(), err::not_supported);
  }
}

}  // namespace
}  // namespace qz
