#include "scenario_fields.h"

#include <printable.h>

#include <algorithm>

#include "arguments.h"
#include "edit_distance.h"

namespace kavrelctl {
namespace {

bool IsAmong(const std::vector<std::string>& words, const std::string& word) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

}  // namespace

std::string QuotedValue(const std::string& value) {
  constexpr std::size_t kLongest = 80;
  return '"' + kavrel_programs::Printable(value, kLongest) + '"';
}

std::string QuotedText(const nlohmann::ordered_json& value) {
  return value.is_string() ? QuotedValue(value.get_ref<const std::string&>()) : value.dump();
}

std::vector<std::string> Words(std::initializer_list<const char*> words) {
  return std::vector<std::string>(words.begin(), words.end());
}

std::string Listed(const std::vector<std::string>& words) {
  std::string list;
  for (const std::string& word : words) list += (list.empty() ? "" : ", ") + word;
  return list;
}

const std::string& TextOf(const YamlNode& node, const std::string& what) {
  if (node.kind == YamlNode::Kind::kText) return node.text;
  throw TextMistake(node.line,
                    what + ": a text is wanted, not " + node.KindName() +
                        (node.kind == YamlNode::Kind::kNothing ? " (an empty text is \"\")" : ""));
}

std::vector<std::string> TextsOf(const YamlNode& node, const std::string& what) {
  if (node.kind != YamlNode::Kind::kList) {
    throw TextMistake(node.line,
                      what + ": a list [...] of texts is wanted, not " + node.KindName());
  }
  std::vector<std::string> texts;
  for (const YamlNode& item : node.items) texts.push_back(TextOf(item, what));
  return texts;
}

void CheckFields(const YamlNode& node, const std::string& what,
                 const std::vector<std::string>& allowed) {
  if (node.kind != YamlNode::Kind::kMap) {
    throw TextMistake(node.line, what + ": a map {...} with " + Listed(allowed) +
                                     " is wanted, not " + node.KindName());
  }
  for (const YamlField& field : node.fields) {
    if (IsAmong(allowed, field.name)) continue;
    throw TextMistake(field.value.line, QuotedValue(field.name) + " does not belong to " + what +
                                            ", which has " + Listed(allowed) +
                                            DidYouMean(field.name, allowed));
  }
}

void CheckFields(const YamlNode& node, const std::string& what,
                 std::initializer_list<const char*> allowed) {
  CheckFields(node, what, Words(allowed));
}

void CheckWord(const YamlNode& node, const std::string& what,
               const std::vector<std::string>& allowed) {
  const std::string& word = TextOf(node, what);
  if (IsAmong(allowed, word)) return;
  throw TextMistake(node.line, what + ": " + QuotedValue(word) + " is none of " + Listed(allowed) +
                                   DidYouMean(word, allowed));
}

void CheckWord(const YamlNode& node, const std::string& what,
               std::initializer_list<const char*> allowed) {
  CheckWord(node, what, Words(allowed));
}

const YamlNode& Required(const YamlNode& node, const std::string& name) {
  const YamlNode* const field = node.Find(name);
  if (field == nullptr) throw TextMistake(node.line, '"' + name + "\" is missing");
  return *field;
}

bool FlagOf(const YamlNode& node, const std::string& name, bool otherwise) {
  const YamlNode* const field = node.Find(name);
  if (field == nullptr) return otherwise;
  const auto flag = ParseBool(TextOf(*field, name));
  if (flag) return *flag;
  throw TextMistake(field->line,
                    name + ": " + ValueMistake(kavrel::app_api::ItemType::Bool, field->text));
}

}  // namespace kavrelctl
