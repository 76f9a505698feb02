#include "state_publisher.h"

#include <kavrel/state_api.h>
#include <kavrel/state_properties.h>
#include <vconf.h>

#include <exception>
#include <limits>
#include <utility>

namespace viewer {

namespace properties = kavrel::state::properties;

namespace {

template <class Condition>
std::string NamesOf(const BannerBoard& banners, const Condition& condition) {
  std::string names;
  for (const ShownBanner& shown : banners.shown()) {
    const BannerInfo& info = InfoOf(shown.banner);
    if (!condition(info)) continue;
    if (!names.empty()) names += ',';
    names += info.name;
  }
  return names;
}

// What XF86Menu would offer now.
const char* MoreOptions(const Television& television) {
  if (television.is_pip_focused()) return "pip";
  return television.is_on_channel() ? "channel" : "source";
}

}  // namespace

StatePublisher::StatePublisher(Television& television, int window_number)
    : television_(television) {
  television.AddListener([this](const Change& /*change*/) { Publish(); });
  OwnNumber(properties::window_id.key, window_number);
  // What the store keeps over restarts goes on; a store that has none begins with 0.
  if (vconf_get_int(properties::db_serdes_error.key, &earlier_losses_) != 0 || earlier_losses_ < 0)
    earlier_losses_ = 0;
  Publish();
}

StatePublisher::~StatePublisher() {
  written_ = nullptr;  // who was told of each write has gone
  try {
    OwnText(properties::visible_banners.key, "");
    OwnText(properties::visible_video_banners.key, "");
    OwnNumber(properties::banner_show_state.key, 0);
    OwnText(properties::kavrel_state.key, "stopped");
  } catch (const std::exception&) {
    // Without memory the store keeps what was published last, as when this process is killed.
  }
}

void StatePublisher::Publish() {
  PublishBanners();
  PublishServices();
  PublishSignal();
  Number(properties::pip_focus.key, television_.is_pip_focused(), &kavrel_set_pip_focus);
  // Applications have a place beside a picture that does not fill the screen, and on one that shows
  // none.
  Number(properties::bg_executable.key, television_.window_size() != 0 || !television_.is_visible(),
         &kavrel_set_bg_executable);
  Number(properties::analog_clean_view_state.key, television_.is_analog_clean_view(),
         &kavrel_set_analog_clean_view_state);
  Text(properties::more_key_option_type.key, MoreOptions(television_),
       &kavrel_set_more_key_option_type);
  OwnText(properties::rating_locked.key, television_.is_rating_locked() ? "locked" : "unlocked");
  OwnText(properties::kavrel_state.key, ActivityName(television_.activity()));
}

void StatePublisher::PublishBanners() {
  const BannerBoard& banners = television_.banners();
  OwnText(properties::visible_banners.key, NamesOf(banners, [](const auto&) { return true; }));
  OwnText(properties::visible_video_banners.key,
          NamesOf(banners, [](const BannerInfo& info) { return info.kind == BannerKind::kVideo; }));
  OwnNumber(properties::banner_show_state.key, !banners.shown().empty());
  Number(properties::use_4_direction_key.key, banners.IsAnyShown(BannerKind::kPopup),
         &kavrel_set_use_4_direction_key);
}

void StatePublisher::PublishSignal() {
  Number(properties::mainscreen_signal_state.key, television_.has_signal(),
         &kavrel_set_mainscreen_signal_state);
  const int losses = television_.signal_losses();
  Number(properties::memory_serdes_error.key, losses, &kavrel_set_memroy_serdes_error);
  const int all = losses > std::numeric_limits<int>::max() - earlier_losses_
                      ? losses
                      : earlier_losses_ + losses;
  Number(properties::db_serdes_error.key, all, &kavrel_set_db_serdes_error);
}

void StatePublisher::PublishServices() {
  Number(properties::info_banner_dynamic_si_modify_state.key,
         television_.is_channel_information_modified(),
         &kavrel_set_info_banner_dynamic_si_modify_state);
  const Services services = television_.services();
  Number(properties::date_service_available.key, services.data, &kavrel_set_date_service_available);
  Number(properties::info_banner_ttx_state.key, services.teletext,
         &kavrel_set_info_banner_ttx_state);
  Number(properties::info_banner_caption_state.key, services.caption,
         &kavrel_set_info_banner_caption_state);
  Number(properties::info_banner_subtitle_state.key, services.subtitle,
         &kavrel_set_info_banner_subtitle_state);
  Number(properties::info_banner_ttml_state.key, services.ttml, &kavrel_set_info_banner_ttml_state);
}

void StatePublisher::Text(const char* key, const char* value, TextSetter set) {
  Update(key, std::string(value), [&] { return set(value); });
}

void StatePublisher::Number(const char* key, int value, NumberSetter set) {
  Update(key, value, [&] { return set(value); });
}

// The state API has no setter for what only the viewer may write; the viewer writes the key itself.
void StatePublisher::OwnNumber(const char* key, int value) {
  Update(key, value, [&] { return vconf_set_int(key, value); });
}

void StatePublisher::OwnText(const char* key, const std::string& value) {
  Update(key, value, [&] { return vconf_set_str(key, value.c_str()); });
}

template <class Write>
void StatePublisher::Update(const char* key, Value value, const Write& write) {
  const auto known = published_.find(key);
  if (known != published_.end() && known->second == value) return;
  if (written_) written_(key);
  if (write() == 0) {
    published_.insert_or_assign(key, std::move(value));
  } else {
    published_.erase(key);
  }
}

}  // namespace viewer
