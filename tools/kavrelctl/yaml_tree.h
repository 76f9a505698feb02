// YAML as a tree that knows its lines, read with the limits that a text from elsewhere needs.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace kavrelctl {

/// What is wrong with a text, for people, and in which line (from 1; 0: with the whole).
struct TextMistake : std::runtime_error {
  TextMistake(int at, const std::string& message) : std::runtime_error(message), line(at) {}
  int line;
};

struct YamlField;

struct YamlNode {
  enum class Kind { kNothing, kText, kList, kMap };

  Kind kind = Kind::kNothing;
  int line = 0;
  std::string text;               ///< of kText
  std::vector<YamlNode> items;    ///< of kList
  std::vector<YamlField> fields;  ///< of kMap, in their order; no key twice

  /// The field of that name, or null.
  const YamlNode* Find(const std::string& name) const;
  /// "a text", "a list", ...
  const char* KindName() const;
};

struct YamlField {
  std::string name;
  YamlNode value;
};

/// Nested deeper than anything a person writes.
inline constexpr std::size_t kDeepestYaml = 16;

/// Reads one document; JSON is one too. Throws TextMistake: for what is not YAML or not UTF-8, and
/// for what would let a small text become a large tree or another type than it looks like -
/// aliases, tags, deep nesting, keys that come twice or are not texts, a second document.
YamlNode ReadYaml(const std::string& text);

}  // namespace kavrelctl
