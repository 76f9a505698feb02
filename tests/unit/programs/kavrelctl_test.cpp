#include <app_id.h>
#include <gtest/gtest.h>
#include <printable.h>

#include <set>

#include "arguments.h"
#include "edit_distance.h"
#include "method_list.h"
#include "method_names.h"
#include "output.h"
#include "settings.h"

namespace kavrelctl {
namespace {

using kavrel::app_api::ItemType;
using kavrel::app_api::kMethods;

TEST(KebabName, ReadsWell) {
  EXPECT_EQ(KebabName("TuneChannel"), "tune-channel");
  EXPECT_EQ(KebabName("GetWindowSize"), "get-window-size");
  EXPECT_EQ(KebabName("SendMbrKey"), "send-mbr-key");
  EXPECT_EQ(KebabName("ShowMTSBanner"), "show-mts-banner");
  EXPECT_EQ(KebabName("ShowPVRInfo"), "show-pvr-info");
  EXPECT_EQ(KebabName("SetTVSHint"), "set-tvs-hint");
  EXPECT_EQ(KebabName("SetHbbTVState"), "set-hbbtv-state");
  EXPECT_EQ(KebabName("ShowOCLViewForMLED"), "show-ocl-view-for-mled");
  EXPECT_EQ(KebabName("SvcIdTune"), "svc-id-tune");
  EXPECT_EQ(KebabName("ExitTTX"), "exit-ttx");
}

TEST(KebabName, IsUniqueAndPlainForEveryMethod) {
  std::set<std::string> names;
  for (const auto& method : kMethods) {
    const std::string name = KebabName(method.name);
    EXPECT_TRUE(names.insert(name).second) << name;
    EXPECT_EQ(name.find_first_not_of("abcdefghijklmnopqrstuvwxyz-"), std::string::npos) << name;
    EXPECT_EQ(name.find("--"), std::string::npos) << name;
  }
}

TEST(Synopsis, NamesArgumentsAndAnswer) {
  using namespace kavrel::app_api;
  EXPECT_EQ(ArgumentSynopsis(methods::TuneChannelMajor::kInfo),
            "MAJOR:int MINOR:int CALLER:string");
  EXPECT_EQ(ArgumentSynopsis(methods::SvcIdTune::kInfo),
            "SERVICE-ID:string TRANSPORT-STREAM-ID:string NETWORK-ID:string CALLER:string");
  EXPECT_EQ(ArgumentSynopsis(methods::SendMbrKey::kInfo),
            "DEVICE-TYPE:int DEVICE-NUMBER:int ACTION:int KEY:string [--list TEXT]...");
  EXPECT_EQ(AnswerSynopsis(methods::GetWindowSize::kInfo), "size:int, bool");
  EXPECT_EQ(AnswerSynopsis(methods::SetWindowSize::kInfo), "bool");
  EXPECT_EQ(AnswerSynopsis(methods::CheckStateForVistane::kInfo), "state:int, int");
  EXPECT_EQ(AnswerSynopsis(methods::ExitTTX::kInfo), "");
}

TEST(ParseInt, TakesWholeNumbersOf32Bits) {
  EXPECT_EQ(ParseInt("0"), 0);
  EXPECT_EQ(ParseInt("-7"), -7);
  EXPECT_EQ(ParseInt("2147483647"), 2147483647);
  EXPECT_EQ(ParseInt("-2147483648"), -2147483647 - 1);
  for (const char* text :
       {"", " 1", "1 ", "+1", "1.0", "0x1", "2147483648", "-2147483649", "one", "--1"}) {
    EXPECT_FALSE(ParseInt(text)) << text;
  }
}

TEST(ParseBool, TakesWordsAndDigits) {
  for (const char* text : {"true", "1", "on", "ON", "True"}) EXPECT_EQ(ParseBool(text), true);
  for (const char* text : {"false", "0", "off"}) EXPECT_EQ(ParseBool(text), false);
  for (const char* text : {"", "yes", "2", "tru"}) EXPECT_FALSE(ParseBool(text)) << text;
}

TEST(ValueMistake, SaysWhatIsExpected) {
  EXPECT_EQ(ValueMistake(ItemType::Int32, "x"),
            "\"x\" is not a whole number from -2147483648 to 2147483647");
  EXPECT_EQ(ValueMistake(ItemType::Bool, "x"), "\"x\" is none of true, false, on, off, 1, 0");
  EXPECT_EQ(ValueMistake(ItemType::Int32, "5"), "");
  EXPECT_EQ(ValueMistake(ItemType::String, ""), "");
}

TEST(TimeoutMistake, TakesSeconds) {
  for (const char* text : {"0", "0.5", "10", "86400"}) EXPECT_EQ(TimeoutMistake(text), "") << text;
  for (const char* text : {"", "-1", "86401", "nan", "inf", "1s"}) {
    EXPECT_NE(TimeoutMistake(text), "") << text;
  }
}

TEST(AppIdMistake, TakesNamesOfTheService) {
  EXPECT_EQ(kavrel_programs::AppIdMistake("org.zarnet.kavrel"), "");
  EXPECT_EQ(kavrel_programs::AppIdMistake(std::string(64, 'a')), "");
  EXPECT_EQ(kavrel_programs::AppIdMistake("a b"),
            "\"a b\" is not an application id (1 to 64 letters, digits, '.', '_' and '-')");
  EXPECT_NE(kavrel_programs::AppIdMistake(""), "");
  EXPECT_NE(kavrel_programs::AppIdMistake("../x"), "");
  EXPECT_NE(kavrel_programs::AppIdMistake(std::string(65, 'a')), "");
}

TEST(Printable, CutsAndEscapes) {
  EXPECT_EQ(kavrel_programs::Printable("plain \xc3\xa4"), "plain \xc3\xa4");
  EXPECT_EQ(kavrel_programs::Printable("a\tb"), "a\\x09b");
  EXPECT_EQ(kavrel_programs::Printable("abcdef", 3), "abc...");
}

TEST(EditDistance, CountsLetters) {
  EXPECT_EQ(EditDistance("", ""), 0U);
  EXPECT_EQ(EditDistance("abc", ""), 3U);
  EXPECT_EQ(EditDistance("", "abc"), 3U);
  EXPECT_EQ(EditDistance("tune-chanel", "tune-channel"), 1U);
  EXPECT_EQ(EditDistance("kitten", "sitting"), 3U);
}

TEST(Table, AlignsColumns) {
  EXPECT_EQ(Table({{"a", "b"}, {"long", "c", "d"}}), "a     b\nlong  c  d\n");
}

TEST(MethodList, HoldsEveryMethod) {
  const auto all = MethodListJson();
  ASSERT_EQ(all.size(), kavrel::app_api::kMethodCount);
  EXPECT_EQ(all[6].dump(),
            R"({"id":8,"method":"GetWindowSize","command":"get-window-size","arguments":[],)"
            R"("values":[{"name":"size","type":"int"}],"result":"bool",)"
            R"("summary":"ask for the viewer's window size",)"
            R"("function":"kavrel_api_get_window_size"})");
  EXPECT_TRUE(all[0]["result"].is_null());
  const std::string text = MethodListText();
  for (const auto& method : kMethods) {
    EXPECT_NE(text.find(' ' + KebabName(method.name)), std::string::npos) << method.name;
  }
}

}  // namespace
}  // namespace kavrelctl
