// The methods' names as people type them.
#pragma once

#include <kavrel/tidl/KavrelAppApiMethods.h>

#include <string>
#include <string_view>

namespace kavrelctl {

/// "ShowMTSBanner" becomes "show-mts-banner": a word begins at an upper-case letter behind a
/// lower-case one, and at the last of several upper-case letters when a lower-case one follows.
std::string KebabName(std::string_view method);

/// "service_id" becomes "SERVICE-ID".
std::string ArgumentLabel(std::string_view name);

/// What values an argument of that name takes, where the name does not say it; for people.
std::string ArgumentMeaning(std::string_view name);

/// "LEFT:int TOP:int" of the request's arguments; "[--list TEXT]..." for a list.
std::string ArgumentSynopsis(const kavrel::app_api::MethodInfo& method);

/// What the viewer answers: "left:int top:int, bool"; empty for a method without an answer.
std::string AnswerSynopsis(const kavrel::app_api::MethodInfo& method);

}  // namespace kavrelctl
