#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "legacy/MessageCodec.h"

namespace {

using kavrel::glib::Sink;
using kavrel::glib::Variant;
using kavreldbus::MessageCodec;
using testing::HasSubstr;

using Pairs = std::vector<std::pair<std::string, std::string>>;

CMessage MessageOf(const Pairs& pairs) {
  CMessage message;
  for (const auto& [key, value] : pairs) message.AddValue(key.c_str(), value.c_str());
  return message;
}

Pairs PairsOf(const CMessage& message) {
  Pairs pairs;
  for (int i = 0; i < message.Size(); ++i) {
    pairs.emplace_back(message.GetKey(i), message.GetValue(i));
  }
  return pairs;
}

std::string Text(GVariant* variant) {
  char* text = g_variant_print(variant, TRUE);
  std::string copy = text;
  g_free(text);
  return copy;
}

// As it arrives: from bytes, not from the tree that was built.
Variant ThroughBytes(GVariant* body) {
  return Sink(g_variant_new_from_data(g_variant_get_type(body), g_variant_get_data(body),
                                      g_variant_get_size(body), FALSE, nullptr, nullptr));
}

// Names a parameterised test by its place: the values do not make a name.
template <class Value>
std::string Numbered(const testing::TestParamInfo<Value>& instance) {
  return std::to_string(instance.index);
}

class RoundTrip : public testing::TestWithParam<Pairs> {};

TEST_P(RoundTrip, GivesTheSamePairsInTheSameOrder) {
  std::string problem;
  const Variant body = MessageCodec::Encode(MessageOf(GetParam()), problem);
  ASSERT_NE(body, nullptr) << problem;
  const Variant arrived = ThroughBytes(body.get());
  CMessage message;
  ASSERT_TRUE(MessageCodec::Decode(arrived.get(), message, problem)) << problem;
  EXPECT_EQ(PairsOf(message), GetParam());
}

Pairs ManyPairs(int count) {
  Pairs pairs;
  for (int i = 0; i < count; ++i) pairs.emplace_back("key" + std::to_string(i % 7), "v");
  return pairs;
}

INSTANTIATE_TEST_SUITE_P(
    Messages, RoundTrip,
    testing::Values(Pairs{}, Pairs{{"a", "1"}}, Pairs{{"a", "1"}, {"b", "2"}, {"a", "3"}},
                    Pairs{{"", ""}}, Pairs{{"Ähre", "日本"}}, ManyPairs(10'000),
                    Pairs{{"big", std::string(std::size_t{1024} * 1024, 'x')},
                          {std::string(std::size_t{1024} * 1024, 'k'), "big key"}}),
    Numbered<Pairs>);

TEST(MessageCodec, EncodesAsTheStatedType) {
  std::string problem;
  const Variant body = MessageCodec::Encode(MessageOf({{"a", "1"}, {"a", "2"}}), problem);
  EXPECT_EQ(Text(body.get()), "([('a', '1'), ('a', '2')],)");
  const Variant empty = MessageCodec::Encode(CMessage(), problem);
  EXPECT_EQ(Text(empty.get()), "(@a(ss) [],)");
  EXPECT_STREQ(g_variant_get_type_string(empty.get()), "(a(ss))");
  EXPECT_EQ(problem, "");
}

TEST(MessageCodec, RefusesTextsThatCannotTravel) {
  for (const Pairs& pairs : {Pairs{{"a", "\xff"}}, Pairs{{"\xc3", "b"}}}) {
    std::string problem;
    EXPECT_EQ(MessageCodec::Encode(MessageOf(pairs), problem), nullptr);
    EXPECT_THAT(problem, HasSubstr("UTF-8"));
  }
}

TEST(MessageCodec, RefusesMorePairsThanItReads) {
  std::string problem;
  EXPECT_NE(MessageCodec::Encode(MessageOf(ManyPairs(MessageCodec::kMaxPairs)), problem), nullptr);
  EXPECT_EQ(MessageCodec::Encode(MessageOf(ManyPairs(MessageCodec::kMaxPairs + 1)), problem),
            nullptr);
  EXPECT_THAT(problem, HasSubstr("65537 pairs"));
}

TEST(MessageCodec, RefusesWhatTheBusWouldNotTake) {
  std::string problem;
  const std::string large(MessageCodec::kMaxBodyBytes, 'x');
  EXPECT_EQ(MessageCodec::Encode(MessageOf({{"a", large}}), problem), nullptr);
  EXPECT_THAT(problem, HasSubstr("larger than"));
}

class ForeignBody : public testing::TestWithParam<const char*> {};

TEST_P(ForeignBody, IsNotRead) {
  const Variant body(g_variant_parse(nullptr, GetParam(), nullptr, nullptr, nullptr));
  ASSERT_NE(body, nullptr);
  CMessage message;
  std::string problem;
  EXPECT_FALSE(MessageCodec::Decode(body.get(), message, problem));
  EXPECT_EQ(message.Size(), 0);
  EXPECT_THAT(problem, HasSubstr(g_variant_get_type_string(body.get())));
}

INSTANTIATE_TEST_SUITE_P(Types, ForeignBody,
                         testing::Values("()", "('a',)", "('a', 'b')", "([('a', 'b')], 1)",
                                         "([('a', 'b', 'c')],)", "([('a', 1)],)", "([1, 2],)",
                                         "({'a': 'b'},)", "[('a', 'b')]", "1", "(true,)",
                                         "([@av []],)", "(<[('a', 'b')]>,)"),
                         Numbered<const char*>);

TEST(MessageCodec, RefusesNoBody) {
  CMessage message;
  std::string problem;
  EXPECT_FALSE(MessageCodec::Decode(nullptr, message, problem));
}

TEST(MessageCodec, RefusesTooManyArrivingPairs) {
  GVariantBuilder builder;
  g_variant_builder_init(&builder, G_VARIANT_TYPE("a(ss)"));
  for (int i = 0; i <= MessageCodec::kMaxPairs; ++i) {
    g_variant_builder_add(&builder, "(ss)", "", "");
  }
  const Variant body = Sink(g_variant_new("(a(ss))", &builder));
  CMessage message;
  std::string problem;
  EXPECT_FALSE(MessageCodec::Decode(body.get(), message, problem));
  EXPECT_EQ(message.Size(), 0);
  EXPECT_THAT(problem, HasSubstr("65537 pairs"));
}

// Bytes that no GVariant writer makes read as defaults, never as garbage.
TEST(MessageCodec, ReadsBrokenBytesAsDefaults) {
  const std::string bytes(64, '\xee');
  const Variant body = Sink(g_variant_new_from_data(G_VARIANT_TYPE("(a(ss))"), bytes.data(),
                                                    bytes.size(), FALSE, nullptr, nullptr));
  CMessage message;
  std::string problem;
  EXPECT_TRUE(MessageCodec::Decode(body.get(), message, problem)) << problem;
  for (const auto& [key, value] : PairsOf(message)) EXPECT_EQ(key + value, "");
}

}  // namespace
