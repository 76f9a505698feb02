#include "screen.h"

#include <new>

#include "banner_view.h"
#include "picture.h"

namespace viewer {

Screen::Screen(const Window& window, Television& television)
    : television_(television),
      picture_(window, kPictureLayer),
      banners_(window, kBannerLayer),
      calls_(window, kBannerLayer) {
  television.AddListener([this](const Change& change) {
    // Neither changes what is seen; the list of calls is drawn by itself.
    if (change.aspect == Aspect::kRefusal || change.aspect == Aspect::kCommand) return;
    television_changed_ = true;
    DrawSoon();
  });
  DrawChanges(this);
}

Screen::~Screen() {
  if (job_ != nullptr) ecore_job_del(job_);
}

void Screen::AddCall(const std::string& line) {
  last_calls_.push_back(line);
  if (last_calls_.size() > kListedCalls) last_calls_.pop_front();
  calls_changed_ = true;
  DrawSoon();
}

void Screen::Invalidate() {
  television_changed_ = true;
  calls_changed_ = true;
  DrawSoon();
}

void Screen::DrawSoon() {
  if (job_ == nullptr) job_ = ecore_job_add(&Screen::DrawChanges, this);
}

void Screen::Draw() {
  if (job_ == nullptr) return;
  ecore_job_del(job_);
  DrawChanges(this);
}

void Screen::DrawChanges(void* self) {
  auto& screen = *static_cast<Screen*>(self);
  screen.job_ = nullptr;
  try {
    if (screen.television_changed_) screen.DrawTelevision();
    if (screen.calls_changed_) screen.DrawCallList();
  } catch (const std::bad_alloc&) {
    // What is missing is drawn with the next change.
  }
}

void Screen::DrawTelevision() {
  picture_.Clear();
  banners_.Clear();
  DrawPicture(picture_, television_);
  DrawBanners(banners_, television_);
  television_changed_ = false;
}

void Screen::DrawCallList() {
  calls_.Clear();
  DrawCalls(calls_, last_calls_);
  calls_changed_ = false;
}

}  // namespace viewer
