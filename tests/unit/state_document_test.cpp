// The table of properties in the documents is the one in the code.
#include <gtest/gtest.h>
#include <kavrel/state_properties.h>

#include <string>

#include "temporary_directory.h"

namespace kavrel_test {
namespace {

using kavrel::state::kProperties;
using kavrel::state::PropertyInfo;
using kavrel::state::PropertyType;
using kavrel::state::PropertyTypeName;

std::string DocumentRow(const PropertyInfo& property) {
  const bool status_only = property.type == PropertyType::String;
  const auto yes = [](bool can) { return can ? "yes" : "-"; };
  return std::string("| `") + property.name + "` | `" + property.key + "` | " +
         PropertyTypeName(property.type) + " | " + (status_only ? "status" : "yes") + " | " +
         yes(property.IsWritable()) + " | " + yes(property.IsWatchable()) + " | " +
         property.meaning + " |\n";
}

TEST(StateDocument, HoldsEveryProperty) {
  std::string table =
      "| property | key | type | read | write | watch | meaning |\n|---|---|---|---|---|---|---|\n";
  for (const PropertyInfo& property : kProperties) table += DocumentRow(property);
  const std::string page = ReadFile(KAVREL_SOURCE_DIR "/docs/state.md");
  EXPECT_NE(page.find(table), std::string::npos) << "docs/state.md must hold:\n" << table;
}

// The header's comment on each property begins with its name and meaning.
TEST(StateDocument, HeaderTellsTheSame) {
  std::string header = ReadFile(KAVREL_SOURCE_DIR "/include/kavrel/state_api.h");
  for (auto at = header.find("\n * "); at != std::string::npos; at = header.find("\n * ")) {
    header.replace(at, 4, " ");
  }
  for (const PropertyInfo& property : kProperties) {
    const std::string type =
        property.type == PropertyType::Locked ? "string" : PropertyTypeName(property.type);
    EXPECT_NE(header.find(std::string("/** ") + property.name + ": " + property.meaning +
                          ". Key \"" + property.key + "\", " + type),
              std::string::npos)
        << property.name;
  }
}

}  // namespace
}  // namespace kavrel_test
