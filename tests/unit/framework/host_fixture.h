// A host over fakes: no window system, no bus.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "fake_channel.h"
#include "fake_toolkit.h"
#include "journal.h"
#include "legacy/ViewerHost.h"

namespace framework_test {

class HostTest : public JournalTest {
 protected:
  HostTest() {
    Toolkit() = {};
    Channels() = {};
  }
  ~HostTest() override { host_.reset(); }

  void MakeHost(Evas_Object* window = RootWindow(), const char* name = "kavrel",
                HostMessageCB callback = &HostTest::Receive) {
    host_.reset();
    host_ = std::make_unique<CViewerHost>(window, callback, this, name);
    TakeLines();
  }

  void Add(const char* name, int type) {
    EXPECT_TRUE(Channels().announced(name, type, true));
    TakeLines();
  }

  /// What the plug-in's channel gives to the host.
  bool Say(const std::string& plugin,
           const std::vector<std::pair<std::string, std::string>>& pairs) {
    CMessage message = Message(pairs);
    message.AddValue("name", plugin.c_str());
    return Channels().from_plugin.at(plugin)(message);
  }

  void RegisterKeys(const std::string& plugin, const std::vector<std::string>& keys) {
    std::vector<std::pair<std::string, std::string>> pairs = {{"register_key", plugin}};
    for (const std::string& key : keys) pairs.emplace_back("key", key);
    EXPECT_TRUE(Say(plugin, pairs));
    TakeLines();
  }

  void Appear(int object, const char* title) {
    Toolkit().titles[Object(object)] = title;
    Toolkit().Emit("add.object", Object(object));
  }

  /// The consumer that the host named, "untouched" when it named none; checks which plug-in the key
  /// was sent to (empty: none).
  std::string Dispatch(const std::string& key, const std::string& receiver) {
    TakeLines();
    std::string consumer = "untouched";
    const bool taken = host_->DispatchInput(key, 0, 0, consumer);
    EXPECT_EQ(taken, !receiver.empty());
    std::string sent_to;
    for (const std::string& line : TakeLines()) {
      if (line.starts_with("send ")) sent_to += line.substr(5, line.find(' ', 5) - 5);
    }
    EXPECT_EQ(sent_to, receiver);
    return consumer;
  }

  static void Receive(CMessage& message, void* test) {
    Note("application: " + Show(message));
    auto* const self = static_cast<HostTest*>(test);
    if (self->destroy_in_callback_) self->host_.reset();
  }

  bool destroy_in_callback_ = false;
  std::unique_ptr<CViewerHost> host_;
};

}  // namespace framework_test
