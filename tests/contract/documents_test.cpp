// The tables in the documents say what the code does: each row is made from the code's own table
// and must stand in the page.
#include <gtest/gtest.h>
#include <kavrel/tidl/KavrelAppApiMethods.h>

#include <regex>
#include <string>

#include "temporary_directory.h"

namespace {

using kavrel::app_api::ItemType;
using kavrel::app_api::kMethods;
using kavrel::app_api::MethodInfo;

const char* ShortType(ItemType type) {
  switch (type) {
    case ItemType::Int32:
      return "i";
    case ItemType::Bool:
      return "b";
    case ItemType::String:
      return "s";
    case ItemType::StringList:
      return "sl";
    case ItemType::None:
      break;
  }
  return "";
}

void AppendItem(std::string& list, ItemType type, std::string_view name) {
  if (!list.empty()) list += ", ";
  list += ShortType(type);
  list += ' ';
  list += name;
}

std::string DocumentRow(const MethodInfo& method) {
  std::string arguments;
  std::string reply;
  for (std::size_t i = 0; i < method.argument_count; ++i) {
    AppendItem(arguments, method.arguments[i], method.argument_names[i]);
  }
  for (std::size_t i = 0; i < method.out_value_count; ++i) {
    AppendItem(reply, ItemType::Int32, method.out_value_names[i]);
  }
  if (method.HasReply()) AppendItem(reply, method.result, "result");
  return "| " + std::to_string(method.id) + " | `" + method.name + "` | `kavrel_api_" +
         method.c_name + "` | " + arguments + " | " + reply + " | " + method.summary + " |\n";
}

TEST(Documents, CommandsPageHoldsEveryMethod) {
  const std::string page = kavrel_test::ReadFile(KAVREL_SOURCE_DIR "/docs/commands.md");
  std::string table =
      "| id | method | function | arguments | answer | |\n|---|---|---|---|---|---|\n";
  for (const MethodInfo& method : kMethods) table += DocumentRow(method);
  EXPECT_NE(page.find(table), std::string::npos) << "docs/commands.md must end with:\n" << table;
}

// A header's comments as running text.
std::string CommentsOf(const std::string& header) {
  const std::string path = KAVREL_SOURCE_DIR "/include/kavrel/" + header;
  return std::regex_replace(kavrel_test::ReadFile(path), std::regex("\\n\\s*/// ?"), " ");
}

TEST(Documents, ServiceHeaderTellsOfEveryMethod) {
  const std::string comments = CommentsOf("tidl/KavrelAppApiStub.h");
  for (const MethodInfo& method : kMethods) {
    const std::string text = "Method " + std::to_string(method.id) + ": " + method.summary;
    EXPECT_NE(comments.find(text), std::string::npos) << method.name;
  }
}

TEST(Documents, CommandHeadersTellOfEveryMethod) {
  const std::string comments = CommentsOf("app_api.h") + CommentsOf("app_api_show.h");
  for (const MethodInfo& method : kMethods) {
    const std::string text = "Method " + std::to_string(method.id) +
                             (method.HasReply() ? ", answered: " : ", one-way: ");
    EXPECT_NE(comments.find(text), std::string::npos) << method.name;
  }
}

}  // namespace
