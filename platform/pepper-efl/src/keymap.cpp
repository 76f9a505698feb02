#include "keymap.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "log.h"

namespace kavrel_pepper {
namespace {

using kavrel_platform::UniqueFd;

// The kernel's KEY_RED to KEY_BLUE (398 to 401), plus 8.
constexpr char kColourKeys[] =
    "key <I406> { [ XF86Red ] };\nkey <I407> { [ XF86Green ] };\n"
    "key <I408> { [ XF86Yellow ] };\nkey <I409> { [ XF86Blue ] };\n";

struct FreeText {
  void operator()(char* text) const { std::free(text); }
};

std::string TextOf(xkb_keymap* keymap) {
  const std::unique_ptr<char, FreeText> text(
      xkb_keymap_get_as_string(keymap, XKB_KEYMAP_FORMAT_TEXT_V1));
  return text != nullptr ? text.get() : std::string();
}

// The end of a section is its closing line; the section of symbols is the last but the geometry's.
std::string WithColourKeys(std::string text) {
  const auto symbols = text.find("xkb_symbols");
  const auto end = symbols != std::string::npos ? text.find("\n};", symbols) : symbols;
  if (end == std::string::npos) return text;
  return text.insert(end + 1, kColourKeys);
}

}  // namespace

std::unique_ptr<Keymap> Keymap::Load() {
  auto keymap = std::make_unique<Keymap>();
  if (!keymap->Compile()) {
    LogError("no keyboard for the clients: the system's keyboard layouts cannot be loaded");
    return nullptr;
  }
  keymap->IndexKeys();
  return keymap;
}

bool Keymap::Compile() {
  context_.reset(xkb_context_new(XKB_CONTEXT_NO_FLAGS));
  if (context_ == nullptr) return false;
  xkb_context_set_log_level(context_.get(), XKB_LOG_LEVEL_CRITICAL);
  keymap_.reset(xkb_keymap_new_from_names(context_.get(), nullptr, XKB_KEYMAP_COMPILE_NO_FLAGS));
  if (keymap_ == nullptr) return false;
  const std::string text = WithColourKeys(TextOf(keymap_.get()));
  xkb_keymap* extended = xkb_keymap_new_from_string(
      context_.get(), text.c_str(), XKB_KEYMAP_FORMAT_TEXT_V1, XKB_KEYMAP_COMPILE_NO_FLAGS);
  if (extended != nullptr) keymap_.reset(extended);
  return WriteFile(extended != nullptr ? text : TextOf(keymap_.get()));
}

// All clients share the file, so it is sealed; and it is opened again for reading, because a sealed
// file that is open for writing cannot be mapped shared, which older clients do.
bool Keymap::WriteFile(const std::string& text) {
  const UniqueFd file(::memfd_create("keymap", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  size_ = static_cast<std::uint32_t>(text.size() + 1);
  if (!file || ::write(file.get(), text.c_str(), size_) != static_cast<ssize_t>(size_))
    return false;
  constexpr int kSeals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL;
  if (::fcntl(file.get(), F_ADD_SEALS, kSeals) != 0) return false;
  const std::string path = "/proc/self/fd/" + std::to_string(file.get());
  file_.Reset(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  return file_.valid();
}

void Keymap::IndexKeys() {
  for (xkb_keycode_t code = xkb_keymap_min_keycode(keymap_.get());
       code <= xkb_keymap_max_keycode(keymap_.get()); ++code) {
    const xkb_level_index_t levels = xkb_keymap_num_levels_for_key(keymap_.get(), code, 0);
    for (xkb_level_index_t level = 0; level < levels; ++level) {
      const xkb_keysym_t* symbols = nullptr;
      if (xkb_keymap_key_get_syms_by_level(keymap_.get(), code, 0, level, &symbols) != 1) continue;
      xkb_mod_mask_t needs = 0;
      xkb_keymap_key_get_mods_for_level(keymap_.get(), code, 0, level, &needs, 1);
      const auto [known, added] = keys_.try_emplace(*symbols, Key{code, needs});
      if (!added && known->second.needs != 0 && needs == 0) known->second = {code, needs};
    }
  }
}

std::optional<Key> Keymap::Find(const char* name) const {
  if (name == nullptr) return std::nullopt;
  const auto key = keys_.find(xkb_keysym_from_name(name, XKB_KEYSYM_NO_FLAGS));
  if (key == keys_.end() || key->first == XKB_KEY_NoSymbol) return std::nullopt;
  return key->second;
}

bool Keymap::Has(xkb_keycode_t code) const {
  return xkb_keymap_num_levels_for_key(keymap_.get(), code, 0) > 0;
}

}  // namespace kavrel_pepper
