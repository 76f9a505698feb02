#include "method_names.h"

namespace kavrelctl {
namespace {

using kavrel::app_api::ItemType;
using kavrel::app_api::ItemTypeName;
using kavrel::app_api::MethodInfo;

// Locale-free: the names are ASCII.
bool IsUpper(char c) {
  return c >= 'A' && c <= 'Z';
}
bool IsLower(char c) {
  return c >= 'a' && c <= 'z';
}
char ToLower(char c) {
  return IsUpper(c) ? static_cast<char>(c - 'A' + 'a') : c;
}
char ToUpper(char c) {
  return IsLower(c) ? static_cast<char>(c - 'a' + 'A') : c;
}

// Words whose own spelling would be cut to pieces.
std::string WithPlainWords(std::string_view method) {
  constexpr std::string_view kOdd = "HbbTV";
  constexpr std::string_view kPlain = "Hbbtv";
  std::string name(method);
  const std::size_t at = name.find(kOdd);
  if (at != std::string::npos) name.replace(at, kOdd.size(), kPlain);
  return name;
}

bool BeginsWord(std::string_view name, std::size_t at) {
  if (at == 0 || !IsUpper(name[at])) return false;
  return !IsUpper(name[at - 1]) || (at + 1 < name.size() && IsLower(name[at + 1]));
}

}  // namespace

std::string KebabName(std::string_view method) {
  const std::string name = WithPlainWords(method);
  std::string kebab;
  for (std::size_t i = 0; i < name.size(); ++i) {
    if (BeginsWord(name, i)) kebab += '-';
    kebab += ToLower(name[i]);
  }
  return kebab;
}

std::string ArgumentLabel(std::string_view name) {
  std::string label;
  for (const char c : name) label += c == '_' ? '-' : ToUpper(c);
  return label;
}

std::string ArgumentMeaning(std::string_view name) {
  struct Meaning {
    std::string_view name;
    const char* text;
  };
  // As kavrel-viewer takes them.
  constexpr Meaning kMeanings[] = {
      {"show", "0 hides, anything else shows"},
      {"caller", "Who asks; for the viewer's log"},
      {"banner", "Its name, such as channel or sleep-timer"},
      {"level", "0 (largest window) to 4"},
      {"size", "0 full screen, 1 three quarters, 2 half, 3 a quarter"},
      {"left", "On a picture 1920 wide"},
      {"top", "On a picture 1080 high"},
      {"language", "Such as en_GB"},
  };
  for (const Meaning& meaning : kMeanings) {
    if (meaning.name == name) return meaning.text;
  }
  return {};
}

std::string ArgumentSynopsis(const MethodInfo& method) {
  std::string synopsis;
  for (std::size_t i = 0; i < method.argument_count; ++i) {
    if (i > 0) synopsis += ' ';
    synopsis +=
        method.arguments[i] == ItemType::StringList
            ? "[--list TEXT]..."
            : ArgumentLabel(method.argument_names[i]) + ':' + ItemTypeName(method.arguments[i]);
  }
  return synopsis;
}

std::string AnswerSynopsis(const MethodInfo& method) {
  if (!method.HasReply()) return {};
  std::string synopsis;
  for (std::size_t i = 0; i < method.out_value_count; ++i) {
    if (i > 0) synopsis += ' ';
    synopsis += std::string(method.out_value_names[i]) + ":int";
  }
  return (synopsis.empty() ? "" : synopsis + ", ") + ItemTypeName(method.result);
}

}  // namespace kavrelctl
