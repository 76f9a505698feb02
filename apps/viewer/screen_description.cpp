#include "screen_description.h"

#include "viewer_state.h"

namespace viewer {

using nlohmann::ordered_json;

namespace {

ordered_json DescribeChannel(const Channel& channel) {
  return {{"number", channel.number},
          {"name", channel.name},
          {"source", channel.source},
          {"service_id", channel.service_id}};
}

ordered_json DescribeBanners(const BannerBoard& banners, BannerKind kind) {
  ordered_json rows = ordered_json::array();
  for (const ShownBanner& shown : banners.shown()) {
    const BannerInfo& info = InfoOf(shown.banner);
    if (info.kind == kind) rows.push_back({{"name", info.name}, {"texts", shown.details}});
  }
  return rows;
}

ordered_json DescribePip(const Television& television) {
  if (!television.pip()) return nullptr;
  return {{"channel", DescribeChannel(*television.pip())},
          {"focused", television.is_pip_focused()}};
}

ordered_json DescribeSelectionWindow(const SelectionWindow& window) {
  const MoveRange range = window.move_range();
  return {{"shown", window.is_shown()},
          {"zoom_level", window.zoom_level()},
          {"left", window.position().left},
          {"top", window.position().top},
          {"width", window.size().width},
          {"height", window.size().height},
          {"move_range",
           {{"least_left", range.least.left},
            {"least_top", range.least.top},
            {"greatest_left", range.greatest.left},
            {"greatest_top", range.greatest.top}}}};
}

}  // namespace

ordered_json DescribeScreen(const Television& television) {
  const Source& source = television.source();
  return {
      {"activity", ActivityName(television.activity())},
      {"viewer_state", ViewerState(television)},
      {"channel", DescribeChannel(television.channel())},
      {"source", {{"type", source.type}, {"number", source.number}, {"label", source.label}}},
      {"banners", DescribeBanners(television.banners(), BannerKind::kVideo)},
      {"popups", DescribeBanners(television.banners(), BannerKind::kPopup)},
      {"pip", DescribePip(television)},
      {"selection_window", DescribeSelectionWindow(television.selection_window())},
      {"window_size", television.window_size()},
      {"teletext", television.is_teletext_shown()},
      {"language", television.language()},
      {"kept_keys", television.kept_keys()},
  };
}

}  // namespace viewer
