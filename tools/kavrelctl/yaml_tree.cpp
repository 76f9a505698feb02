#include "yaml_tree.h"

#include <glib.h>
#include <printable.h>

#include <algorithm>
#include <optional>
#include <sstream>
#include <utility>
#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/exceptions.h>
#include <yaml-cpp/parser.h>

namespace kavrelctl {
namespace {

int LineOf(const YAML::Mark& mark) {
  return mark.line + 1;
}

/// Builds the tree while the text is read, so that a limit is met before memory is.
class TreeBuilder final : public YAML::EventHandler {
 public:
  YamlNode Take() { return std::move(root_); }

  void OnDocumentStart(const YAML::Mark& mark) override {
    if (std::exchange(has_document_, true)) {
      throw TextMistake(LineOf(mark), "a second document begins; one is allowed");
    }
  }
  void OnDocumentEnd() override {}

  void OnAlias(const YAML::Mark& mark, YAML::anchor_t /*anchor*/) override {
    throw TextMistake(LineOf(mark), "aliases (*name) are not allowed");
  }
  void OnNull(const YAML::Mark& mark, YAML::anchor_t anchor) override {
    Add(Node(YamlNode::Kind::kNothing, mark, "", anchor));
  }
  void OnScalar(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t anchor,
                const std::string& value) override {
    YamlNode node = Node(YamlNode::Kind::kText, mark, tag, anchor);
    // An escape can say what the file itself must not hold.
    if (g_utf8_validate(value.data(), static_cast<gssize>(value.size()), nullptr) == FALSE) {
      throw TextMistake(node.line, "an escape that stands for no character");
    }
    node.text = value;
    Add(std::move(node));
  }
  void OnSequenceStart(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t anchor,
                       YAML::EmitterStyle::value /*style*/) override {
    Open(Node(YamlNode::Kind::kList, mark, tag, anchor));
  }
  void OnSequenceEnd() override { Close(); }
  void OnMapStart(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t anchor,
                  YAML::EmitterStyle::value /*style*/) override {
    Open(Node(YamlNode::Kind::kMap, mark, tag, anchor));
  }
  void OnMapEnd() override { Close(); }

 private:
  /// A list or map that has been begun.
  struct Begun {
    YamlNode node;
    std::optional<std::string> key;  // of the value that comes next
  };

  static YamlNode Node(YamlNode::Kind kind, const YAML::Mark& mark, const std::string& tag,
                       YAML::anchor_t anchor) {
    if (anchor != 0) throw TextMistake(LineOf(mark), "anchors (&name) are not allowed");
    // The parser's marks for a plain and for a quoted text.
    if (!tag.empty() && tag != "?" && tag != "!") {
      throw TextMistake(LineOf(mark), "tags (!name) are not allowed");
    }
    YamlNode node;
    node.kind = kind;
    node.line = LineOf(mark);
    return node;
  }

  void Open(YamlNode node) {
    if (open_.size() == kDeepestYaml) {
      throw TextMistake(node.line, "more than " + std::to_string(kDeepestYaml) +
                                       " lists and maps inside each other");
    }
    open_.push_back({std::move(node), std::nullopt});
  }

  void Close() {
    YamlNode node = std::move(open_.back().node);
    open_.pop_back();
    Add(std::move(node));
  }

  void Add(YamlNode node) {
    if (open_.empty()) {
      root_ = std::move(node);
      return;
    }
    Begun& parent = open_.back();
    if (parent.node.kind == YamlNode::Kind::kList) {
      parent.node.items.push_back(std::move(node));
    } else if (parent.key) {
      parent.node.fields.push_back({*std::exchange(parent.key, std::nullopt), std::move(node)});
    } else {
      SetKey(parent, node);
    }
  }

  static void SetKey(Begun& parent, const YamlNode& key) {
    if (key.kind != YamlNode::Kind::kText) {
      throw TextMistake(key.line, std::string("a key has to be a text, not ") + key.KindName());
    }
    if (parent.node.fields.size() == kMostFields) {
      throw TextMistake(key.line,
                        "more than " + std::to_string(kMostFields) + " keys in one place");
    }
    if (parent.node.Find(key.text) != nullptr) {
      throw TextMistake(key.line, '"' + kavrel_programs::Printable(key.text, 80) +
                                      "\" comes twice in the same place");
    }
    parent.key = key.text;
  }

  // Each is compared with those before it.
  static constexpr std::size_t kMostFields = 64;

  bool has_document_ = false;
  std::vector<Begun> open_;
  YamlNode root_;
};

}  // namespace

const YamlNode* YamlNode::Find(const std::string& name) const {
  const auto found = std::find_if(fields.begin(), fields.end(),
                                  [&](const YamlField& field) { return field.name == name; });
  return found == fields.end() ? nullptr : &found->value;
}

const char* YamlNode::KindName() const {
  switch (kind) {
    case Kind::kText:
      return "a text";
    case Kind::kList:
      return "a list";
    case Kind::kMap:
      return "a map";
    case Kind::kNothing:
      break;
  }
  return "nothing";
}

YamlNode ReadYaml(const std::string& text) {
  const char* wrong = nullptr;
  if (g_utf8_validate(text.data(), static_cast<gssize>(text.size()), &wrong) == FALSE) {
    const auto line = 1 + std::count(text.data(), wrong, '\n');
    throw TextMistake(static_cast<int>(line), "a byte that is not UTF-8 text");
  }
  std::istringstream stream(text);
  TreeBuilder builder;
  try {
    YAML::Parser parser(stream);
    while (parser.HandleNextDocument(builder)) {
    }
  } catch (const YAML::Exception& error) {
    throw TextMistake(LineOf(error.mark), "not YAML: " + kavrel_programs::Printable(error.msg));
  }
  return builder.Take();
}

}  // namespace kavrelctl
