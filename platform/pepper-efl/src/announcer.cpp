#include "announcer.h"

#include <optional>
#include <utility>

#include "log.h"

namespace kavrel_pepper {
namespace {

constexpr char kLabelsKey[] = "pepper-efl.labels";

struct Labels {
  std::optional<std::string> title;
  std::optional<std::string> app_id;
};

Labels* LabelsOf(Evas_Object* object) {
  return static_cast<Labels*>(evas_object_data_get(object, kLabelsKey));
}

// With the object's memory and not with its deletion: the program's own deletion callback may still
// ask for the title.
void FreeLabels(void* data, Evas*, Evas_Object*, void*) {
  delete static_cast<Labels*>(data);
}

Labels& MakeLabels(Evas_Object* object) {
  if (Labels* labels = LabelsOf(object); labels != nullptr) return *labels;
  auto* labels = new Labels;
  evas_object_data_set(object, kLabelsKey, labels);
  evas_object_event_callback_add(object, EVAS_CALLBACK_FREE, &FreeLabels, labels);
  return *labels;
}

const char* TextOf(const std::optional<std::string>& text) {
  return text ? text->c_str() : nullptr;
}

}  // namespace

Announcer::~Announcer() {
  *alive_ = false;
  if (job_ != nullptr) ecore_job_del(job_);
}

Announcer::Entries::iterator Announcer::Find(Evas_Object* object) {
  auto entry = announced_.begin();
  while (entry != announced_.end() && (*entry)->object != object) ++entry;
  return entry;
}

void Announcer::Add(Evas_Object* object, AnnouncedWindow* window) {
  waiting_.push_back(std::make_unique<Entry>(this, object, window));
  Schedule();
}

void Announcer::Withdraw(Evas_Object* object) {
  if (const auto entry = Find(object); entry != announced_.end()) {
    (*entry)->window = nullptr;
    waiting_.splice(waiting_.end(), announced_, entry);
    Schedule();
    return;
  }
  std::erase_if(waiting_, [&](const auto& entry) { return entry->object == object; });
  evas_object_del(object);
}

void Announcer::Forget(Evas_Object* object) {
  const auto is_it = [&](const auto& entry) { return entry->object == object; };
  std::erase_if(waiting_, is_it);
  std::erase_if(announced_, is_it);
}

void Announcer::Schedule() {
  if (job_ == nullptr) job_ = ecore_job_add(&Announcer::RunJob, this);
}

void Announcer::RunJob(void* data) {
  auto* self = static_cast<Announcer*>(data);
  self->job_ = nullptr;
  try {
    self->Run();
  } catch (...) {
    LogError("out of memory while windows were announced");
  }
}

void Announcer::Run() {
  const std::shared_ptr<bool> alive = alive_;
  while (*alive && RunNext()) {
  }
}

// The entry leaves the queue before its callback runs, which may change the queue or destroy it.
bool Announcer::RunNext() {
  if (waiting_.empty()) return false;
  const std::shared_ptr<bool> alive = alive_;
  Entry* entry = waiting_.front().get();
  Evas_Object* object = entry->object;
  if (entry->window == nullptr) {
    waiting_.pop_front();
    Emit("del.object", object);
    return true;
  }
  AnnouncedWindow* window = entry->window;
  announced_.splice(announced_.end(), waiting_, waiting_.begin());
  Emit("add.object", object);
  if (*alive && Find(object) != announced_.end()) window->Announced();
  return true;
}

void Announcer::Emit(const char* name, Evas_Object* object) {
  evas_object_smart_callback_call(root_, name, object);
}

void Announcer::Finish() {
  const std::shared_ptr<bool> alive = alive_;
  while (*alive && !announced_.empty()) {
    announced_.front()->window = nullptr;
    waiting_.splice(waiting_.end(), announced_, announced_.begin());
  }
  while (*alive && !waiting_.empty()) {
    const std::unique_ptr<Entry> entry = std::move(waiting_.front());
    waiting_.pop_front();
    entry->hooks.Clear();
    Evas_Object* object = entry->object;
    bool deleted = false;
    evas_object_event_callback_add(
        object, EVAS_CALLBACK_DEL,
        [](void* flag, Evas*, Evas_Object*, void*) { *static_cast<bool*>(flag) = true; }, &deleted);
    if (entry->window == nullptr) Emit("del.object", object);
    if (!deleted) evas_object_del(object);
  }
}

void SetTitle(Evas_Object* object, const std::string* title) {
  Labels& labels = MakeLabels(object);
  labels.title = title != nullptr ? std::optional(*title) : std::nullopt;
}

void SetAppId(Evas_Object* object, const std::string* app_id) {
  Labels& labels = MakeLabels(object);
  labels.app_id = app_id != nullptr ? std::optional(*app_id) : std::nullopt;
}

const char* TitleOf(Evas_Object* object) {
  const Labels* labels = object != nullptr ? LabelsOf(object) : nullptr;
  return labels != nullptr ? TextOf(labels->title) : nullptr;
}

const char* AppIdOf(Evas_Object* object) {
  const Labels* labels = object != nullptr ? LabelsOf(object) : nullptr;
  return labels != nullptr ? TextOf(labels->app_id) : nullptr;
}

}  // namespace kavrel_pepper
