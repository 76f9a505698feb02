// Every exported function, of the library and of the five services, with each fault that can meet
// it at every place where it can: no memory, a disk that is full, broken or read-only, no
// descriptor, no watch, no thread. A function that is in no row fails the test.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "trial.h"

namespace faults_test {
namespace {

// The rooms with the most requests for memory are tried in parts, so that no test is long.
struct Room {
  const char* name;
  Rows (*rows)();
  int memory_parts = 1;
};

void PrintTo(const Room& room, std::ostream* out) {
  *out << room.name;
}

const Room kRooms[] = {
    {"Dlog", DlogRows},
    {"Lwipc", LwipcRows},
    {"Vconf", VconfRows},
    {"RpcPort", RpcPortRows},
    {"Compositor", CompositorRows, 8},
    {"State", StateRows, 8},
    {"Commands", CommandRows},
    {"Service", ServiceRows},
    {"Values", ValueRows},
    {"Framework", FrameworkRows},
};

// Each room with each fault, but for hosts and plug-ins without memory: making or destroying one
// then may end the process.
std::vector<std::tuple<Room, Kind, Part>> RoomsAndFaults() {
  std::vector<std::tuple<Room, Kind, Part>> all;
  for (const Room& room : kRooms) {
    for (const Kind& kind : kKinds) {
      if (room.rows == FrameworkRows && kind.fault == Fault::kMemory) continue;
      const int parts = kind.fault == Fault::kMemory ? room.memory_parts : 1;
      for (int part = 1; part <= parts; ++part) all.emplace_back(room, kind, Part{part, parts});
    }
  }
  return all;
}

class EachFault : public testing::TestWithParam<std::tuple<Room, Kind, Part>> {};

TEST_P(EachFault, IsADocumentedFailureAndNothingElse) {
  const auto& [room, kind, part] = GetParam();
  int occurrences = 0;
  for (const Row& row : room.rows()) occurrences += TryEverywhere(row, kind, part);
  if (kind.fault == Fault::kMemory) {
    EXPECT_GT(occurrences, 0);
  }
  RecordProperty("injected", occurrences);
}

// "CMessage::GetKey[abi:cxx11](int) const" is "CMessage::GetKey".
std::string NameOf(std::string line) {
  line.resize(std::min(line.find('('), line.size()));
  line.resize(std::min(line.find("[abi"), line.size()));
  line.resize(std::min(line.find('@'), line.size()));
  return line;
}

// What the library exports, from the list that another test compares with it: functions only.
void AddLibraryFunctions(std::set<std::string>& names) {
  std::ifstream list(KAVREL_EXPORTED_SYMBOLS);
  for (std::string line; std::getline(list, line);) {
    if (line.find('(') != std::string::npos || line.starts_with("kavrel_")) {
      names.insert(NameOf(line));
    }
  }
}

// What a service exports, from its file: C functions only.
void AddServiceFunctions(const std::string& library, std::set<std::string>& names) {
  const std::string command = KAVREL_NM " --dynamic --defined-only --format=posix " + library;
  const std::unique_ptr<FILE, int (*)(FILE*)> output(::popen(command.c_str(), "r"), &::pclose);
  char name[256];
  char type = 0;
  while (std::fscanf(output.get(), "%255s %c%*[^\n]", name, &type) == 2) {
    if (type == 'T' && std::string_view(name).find("_Z") != 0) names.insert(NameOf(name));
  }
}

TEST(ExportedFunctions, AreAllInARow) {
  std::set<std::string> exported;
  AddLibraryFunctions(exported);
  for (const char* library : {KAVREL_SERVICE_LIBRARIES}) AddServiceFunctions(library, exported);
  ASSERT_GT(exported.size(), 200U);
  std::set<std::string> tried;
  for (const Room& room : kRooms) {
    for (const Row& row : room.rows()) tried.insert(row.functions.begin(), row.functions.end());
  }
  for (const std::string& name : exported) {
    EXPECT_TRUE(tried.contains(name)) << name << " is in no row";
  }
  for (const std::string& name : tried) {
    EXPECT_TRUE(exported.contains(name)) << name << " is in a row and not exported";
  }
}

// "StateNoMemory2of8".
std::string NameOf(const std::tuple<Room, Kind, Part>& tried) {
  const auto& [room, kind, part] = tried;
  const std::string name = std::string(room.name) + kind.name;
  if (part.all == 1) return name;
  return name + std::to_string(part.number) + "of" + std::to_string(part.all);
}

INSTANTIATE_TEST_SUITE_P(Rooms, EachFault, testing::ValuesIn(RoomsAndFaults()),
                         [](const auto& instance) { return NameOf(instance.param); });

}  // namespace
}  // namespace faults_test
