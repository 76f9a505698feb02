// The keyboard layout that clients get, and the way from the program's key names into it.
#pragma once

#include <unique_fd.h>
#include <xkbcommon/xkbcommon.h>

#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

namespace kavrel_pepper {

struct Key {
  xkb_keycode_t code;    ///< xkb's, which is the kernel's plus 8
  xkb_mod_mask_t needs;  ///< modifiers without which the code is another key
};

/// The system's default layout, with the four colour keys of a remote control, which no stock
/// layout has. Main thread.
class Keymap {
 public:
  /// Null, with a line in the log, when the layouts of the system cannot be loaded.
  static std::unique_ptr<Keymap> Load();

  /// Finds a key by the name of what it types ("a", "Return", "XF86Red").
  std::optional<Key> Find(const char* name) const;
  bool Has(xkb_keycode_t code) const;

  xkb_keymap* get() const { return keymap_.get(); }
  /// A file that clients can map and nobody can change.
  int fd() const { return file_.get(); }
  std::uint32_t size() const { return size_; }

 private:
  struct Free {
    void operator()(xkb_context* context) const { xkb_context_unref(context); }
    void operator()(xkb_keymap* keymap) const { xkb_keymap_unref(keymap); }
  };

  bool Compile();
  void IndexKeys();
  bool WriteFile(const std::string& text);

  std::unique_ptr<xkb_context, Free> context_;
  std::unique_ptr<xkb_keymap, Free> keymap_;
  std::unordered_map<xkb_keysym_t, Key> keys_;
  kavrel_platform::UniqueFd file_;
  std::uint32_t size_ = 0;
};

}  // namespace kavrel_pepper
