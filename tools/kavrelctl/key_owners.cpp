#include "key_owners.h"

#include <printable.h>

#include <map>
#include <vector>

#include "output.h"

namespace kavrelctl {
namespace {

using nlohmann::ordered_json;

struct Claims {
  ordered_json owner = nullptr;
  bool exclusive = false;
  ordered_json others = ordered_json::array();
};

std::string Text(const ordered_json& value) {
  return kavrel_programs::Printable(value.get<std::string>());
}

std::string OthersText(const ordered_json& others) {
  std::string text;
  for (const ordered_json& name : others) text += (text.empty() ? "" : " ") + Text(name);
  return text.empty() ? "-" : text;
}

}  // namespace

ordered_json KeyOwners(const ordered_json& plugins) {
  std::map<std::string, Claims> keys;
  for (const ordered_json& plugin : plugins) {
    const ordered_json& name = plugin.at("name");
    for (const ordered_json& claim : plugin.at("exclusive_keys")) {
      Claims& claims = keys[claim.at("key")];
      claims.exclusive = true;
      if (claim.at("owner").get<bool>()) {
        claims.owner = name;
      } else {
        claims.others.push_back(name);
      }
    }
    for (const ordered_json& key : plugin.at("keys")) keys[key].others.push_back(name);
  }
  ordered_json list = ordered_json::array();
  for (const auto& [key, claims] : keys) {
    list.push_back({{"key", key},
                    {"exclusive", claims.exclusive},
                    {"owner", claims.owner},
                    {"others", claims.others}});
  }
  return list;
}

std::string KeyOwnersText(const ordered_json& owners) {
  std::vector<std::vector<std::string>> rows = {{"KEY", "OWNER", "ALSO WANTED BY"}};
  for (const ordered_json& entry : owners) {
    const ordered_json& owner = entry.at("owner");
    rows.push_back({Text(entry.at("key")), owner.is_null() ? "-" : Text(owner),
                    OthersText(entry.at("others"))});
  }
  return Table(rows);
}

}  // namespace kavrelctl
