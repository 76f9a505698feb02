#include "input_events.h"

#include "server.h"
#include "surface.h"

namespace kavrel_pepper {
namespace {

Seat& SeatOf(Surface* surface) {
  return surface->server().seat();
}

SurfacePoint PickFrom(Surface* surface, double x, double y) {
  return surface->role() != nullptr ? surface->role()->PickInWindow(x, y) : SurfacePoint();
}

// One struct per event type; Evas names the positions differently in each.
void MouseIn(Surface* surface, const Evas_Event_Mouse_In& event) {
  const double x = event.canvas.x, y = event.canvas.y;
  SeatOf(surface).pointer().Move(PickFrom(surface, x, y), x, y, event.timestamp);
}

void MouseMove(Surface* surface, const Evas_Event_Mouse_Move& event) {
  const double x = event.cur.canvas.x, y = event.cur.canvas.y;
  SeatOf(surface).pointer().Move(PickFrom(surface, x, y), x, y, event.timestamp);
}

void MouseOut(Surface* surface, const Evas_Event_Mouse_Out&) {
  SeatOf(surface).pointer().Leave();
}

// The position comes first: a motion may have been skipped.
void MouseDown(Surface* surface, const Evas_Event_Mouse_Down& event) {
  Pointer& pointer = SeatOf(surface).pointer();
  const double x = event.canvas.x, y = event.canvas.y;
  pointer.Move(PickFrom(surface, x, y), x, y, event.timestamp);
  if (pointer.Press(event.button, event.timestamp)) {
    surface->server().focus().Pressed(pointer.focus());
  }
}

void MouseUp(Surface* surface, const Evas_Event_Mouse_Up& event) {
  SeatOf(surface).pointer().Release(event.button, event.timestamp);
}

void MouseWheel(Surface* surface, const Evas_Event_Mouse_Wheel& event) {
  SeatOf(surface).pointer().Turn(event.direction != 0, event.z, event.timestamp);
}

void MultiDown(Surface* surface, const Evas_Event_Multi_Down& event) {
  const SurfacePoint under = PickFrom(surface, event.canvas.x, event.canvas.y);
  SeatOf(surface).touch().Down(event.device, under, event.timestamp);
  surface->server().focus().Pressed(under.surface);
}

void MultiMove(Surface* surface, const Evas_Event_Multi_Move& event) {
  SeatOf(surface).touch().Move(event.device, event.cur.canvas.x, event.cur.canvas.y,
                               event.timestamp);
}

void MultiUp(Surface* surface, const Evas_Event_Multi_Up& event) {
  SeatOf(surface).touch().Up(event.device, event.timestamp);
}

template <auto Handler>
struct InputCall;

template <class Target, class Event, void (*Handler)(Target*, const Event&)>
struct InputCall<Handler> {
  static void Call(void* target, Evas*, Evas_Object*, void* event) {
    try {
      Handler(static_cast<Target*>(target), *static_cast<Event*>(event));
    } catch (...) {
      // Only memory can have run out; the event is lost.
    }
  }
};

template <auto Handler, class Target>
void Watch(ObjectHooks& hooks, Evas_Callback_Type type, Target* target) {
  hooks.Add(type, &InputCall<Handler>::Call, target);
}

void KeyDown(Server* server, const Evas_Event_Key_Down& event) {
  server->seat().keyboard().Press(event);
}

void KeyUp(Server* server, const Evas_Event_Key_Up& event) {
  server->seat().keyboard().Release(event);
}

}  // namespace

void WatchInput(ObjectHooks& hooks, Surface* surface) {
  Watch<&MouseIn>(hooks, EVAS_CALLBACK_MOUSE_IN, surface);
  Watch<&MouseOut>(hooks, EVAS_CALLBACK_MOUSE_OUT, surface);
  Watch<&MouseMove>(hooks, EVAS_CALLBACK_MOUSE_MOVE, surface);
  Watch<&MouseDown>(hooks, EVAS_CALLBACK_MOUSE_DOWN, surface);
  Watch<&MouseUp>(hooks, EVAS_CALLBACK_MOUSE_UP, surface);
  Watch<&MouseWheel>(hooks, EVAS_CALLBACK_MOUSE_WHEEL, surface);
  Watch<&MultiDown>(hooks, EVAS_CALLBACK_MULTI_DOWN, surface);
  Watch<&MultiMove>(hooks, EVAS_CALLBACK_MULTI_MOVE, surface);
  Watch<&MultiUp>(hooks, EVAS_CALLBACK_MULTI_UP, surface);
  WatchKeys(hooks, &surface->server());
}

void WatchKeys(ObjectHooks& hooks, Server* server) {
  Watch<&KeyDown>(hooks, EVAS_CALLBACK_KEY_DOWN, server);
  Watch<&KeyUp>(hooks, EVAS_CALLBACK_KEY_UP, server);
}

}  // namespace kavrel_pepper
