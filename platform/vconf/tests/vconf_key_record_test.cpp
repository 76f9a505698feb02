// Keys and records: what is accepted, and that damage never passes for a value.
#include <gtest/gtest.h>
#include <vconf.h>

#include <cstring>
#include <random>
#include <string>

#define XXH_INLINE_ALL
#include <xxhash.h>

#include "key.h"
#include "record.h"

namespace {

using namespace kavrel_vconf;

TEST(Key, AcceptsTextsOfBothFamilies) {
  const std::string longest = "db/" + std::string(kMaximumKeySize - 3, 'k');
  for (const std::string& text :
       {std::string("memory/a"), std::string("db/a"), std::string("memory/kavrel/pip_focus"),
        std::string("db/A-Z_0.9/..."), longest}) {
    EXPECT_TRUE(ParseKey(text.c_str())) << text;
  }
  EXPECT_EQ(ParseKey("memory/a")->family, Family::kMemory);
  EXPECT_EQ(ParseKey("db/a")->family, Family::kDurable);
}

TEST(Key, RefusesEverythingElse) {
  EXPECT_FALSE(ParseKey(static_cast<const char*>(nullptr)));
  const std::string too_long = "db/" + std::string(kMaximumKeySize - 2, 'k');
  const std::string huge = "db/" + std::string(std::size_t{10} * 1024, 'k');
  for (const std::string& text : {std::string(""),
                                  std::string("/"),
                                  std::string("a"),
                                  std::string("memory"),
                                  std::string("memory/"),
                                  std::string("db/"),
                                  std::string("/memory/a"),
                                  std::string("memory//a"),
                                  std::string("memory/a/"),
                                  std::string("memory/./a"),
                                  std::string("memory/../db/a"),
                                  std::string("memory/.."),
                                  std::string("Memory/a"),
                                  std::string("memoryx/a"),
                                  std::string("file/a"),
                                  std::string("memory/a b"),
                                  std::string("memory/a\n"),
                                  std::string("memory/%s"),
                                  std::string("memory/\xc3\xbc"),
                                  std::string("memory/\xff\xfe"),
                                  std::string("memory/a\\b"),
                                  too_long,
                                  huge}) {
    EXPECT_FALSE(ParseKey(text.c_str())) << text;
  }
}

// Every byte that is not a letter, a digit or one of "_-./" is refused.
TEST(Key, RefusesEveryOtherByte) {
  const std::string allowed = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-.";
  for (int byte = 1; byte < 256; ++byte) {
    const std::string text = std::string("db/x") + static_cast<char>(byte) + "y";
    const bool is_allowed = byte == '/' || allowed.find(static_cast<char>(byte)) < allowed.size();
    EXPECT_EQ(ParseKey(text.c_str()).has_value(), is_allowed) << byte;
  }
}

TEST(Key, HashesTheSameInEveryProcess) {
  // Processes of different builds share the page that the hash points into.
  EXPECT_EQ(HashName("memory/kavrel/pip_focus")->hash, 7249548214406476695u);
}

class RecordTest : public testing::Test {
 protected:
  const Key key_ = *ParseKey("db/kavrel_test/record");
};

TEST_F(RecordTest, DecodesWhatWasEncoded) {
  const std::string long_text(kMaximumTextSize, 't');
  for (const Value& value :
       {IntValue(0), IntValue(-7), BoolValue(0), BoolValue(5), DoubleValue(-0.25), StringValue(""),
        StringValue("unlocked"), StringValue(long_text)}) {
    std::string bytes;
    EncodeRecord(key_, value, 9, &bytes);
    Value decoded;
    ASSERT_TRUE(DecodeRecord(key_, bytes, &decoded));
    EXPECT_EQ(decoded.type, value.type);
    EXPECT_EQ(decoded.integer, value.integer);
    EXPECT_EQ(decoded.number, value.number);
    EXPECT_EQ(decoded.text, value.text);
    EXPECT_EQ(decoded.revision, 9u);
  }
  EXPECT_EQ(BoolValue(5).integer, 1);
}

TEST_F(RecordTest, RefusesEveryTruncationAndFlippedBit) {
  std::string bytes;
  EncodeRecord(key_, StringValue("unlocked"), 9, &bytes);
  Value value;
  for (std::size_t size = 0; size < bytes.size(); ++size) {
    EXPECT_FALSE(DecodeRecord(key_, bytes.substr(0, size), &value)) << size;
  }
  EXPECT_FALSE(DecodeRecord(key_, bytes + '\0', &value));
  for (std::size_t bit = 0; bit < bytes.size() * 8; ++bit) {
    std::string damaged = bytes;
    damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ (1 << bit % 8));
    EXPECT_FALSE(DecodeRecord(key_, damaged, &value)) << bit;
  }
}

TEST_F(RecordTest, RefusesAnotherKeysRecord) {
  std::string bytes;
  EncodeRecord(*ParseKey("db/kavrel_test/other"), IntValue(1), 9, &bytes);
  Value value;
  EXPECT_FALSE(DecodeRecord(key_, bytes, &value));
}

// What no set has written, with a checksum that is right.
TEST_F(RecordTest, RefusesValuesThatCannotBe) {
  Value half_true = BoolValue(1);
  half_true.integer = 3;
  Value unknown = IntValue(1);
  unknown.type = 99;
  const std::string too_long(kMaximumTextSize + 1, 't');
  for (const Value& written :
       {half_true, unknown, StringValue(too_long), StringValue(std::string_view("a\0b", 3))}) {
    std::string bytes;
    EncodeRecord(key_, written, 9, &bytes);
    Value value;
    EXPECT_FALSE(DecodeRecord(key_, bytes, &value)) << written.type;
  }
}

TEST_F(RecordTest, RefusesNumbersOfAnotherSize) {
  constexpr std::size_t kTypeOffset = 20;
  constexpr std::size_t kChecksumSize = sizeof(std::uint64_t);
  for (const int type : {VCONF_TYPE_BOOL, VCONF_TYPE_INT, VCONF_TYPE_DOUBLE}) {
    std::string bytes;
    EncodeRecord(key_, StringValue("a"), 9, &bytes);
    const auto written = static_cast<std::uint16_t>(type);
    std::memcpy(bytes.data() + kTypeOffset, &written, sizeof written);
    const std::uint64_t checksum =
        XXH3_64bits_withSeed(bytes.data() + kChecksumSize, bytes.size() - kChecksumSize, key_.hash);
    std::memcpy(bytes.data(), &checksum, sizeof checksum);
    Value value;
    EXPECT_FALSE(DecodeRecord(key_, bytes, &value)) << type;
  }
}

TEST_F(RecordTest, RefusesRandomBytes) {
  std::mt19937 random(3);
  Value value;
  for (int round = 0; round < 10000; ++round) {
    std::string bytes(random() % 64, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    EXPECT_FALSE(DecodeRecord(key_, bytes, &value));
  }
}

}  // namespace
