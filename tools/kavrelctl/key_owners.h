// Who owns which key of the remote control.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace kavrelctl {

/// From the viewer's list of plug-ins: an array of {"key", "exclusive", "owner", "others"}, by key.
/// `owner` is the plug-in that gets the key now: who asked last for an exclusive one; for another
/// one null, as it is offered to all of `others` by the viewer's order. Throws what the JSON
/// library throws when the list is none.
nlohmann::ordered_json KeyOwners(const nlohmann::ordered_json& plugins);

/// As a table for people.
std::string KeyOwnersText(const nlohmann::ordered_json& owners);

}  // namespace kavrelctl
