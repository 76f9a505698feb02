#include "failure_texts.h"

#include <cstdio>

namespace kavrelctl {

const char* const kWaitLonger = "; it may be stopped or busy, or wait longer with --timeout";

const char* const kNotPermitted =
    "it does not serve this user, or its runtime directory is not to be trusted";

std::string ViewerName(const Settings& settings) {
  return "the viewer \"" + settings.app_id + '"';
}

std::string LimitText(const Settings& settings) {
  char text[32];
  (void)std::snprintf(text, sizeof text, "%g s", EffectiveTimeoutSeconds(settings));
  return text;
}

std::string SilenceText(const Settings& settings) {
  return "it does not answer (limit " + LimitText(settings) + ')' + kWaitLonger;
}

std::string LostText(const Settings& settings) {
  return ViewerName(settings) + " is lost: it ended the connection";
}

}  // namespace kavrelctl
