// What a process has loaded.
#pragma once

#include <fstream>
#include <initializer_list>
#include <string>
#include <vector>

namespace kavrel_test {

/// The mappings of this process whose file's name contains one of `names`.
inline std::vector<std::string> MappingsOf(std::initializer_list<const char*> names) {
  std::vector<std::string> found;
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    for (const char* const name : names) {
      if (line.find(name) != std::string::npos) found.push_back(line);
    }
  }
  return found;
}

/// Those of EFL, Wayland and the compositor.
inline std::vector<std::string> ToolkitMappings() {
  return MappingsOf({"/libeina", "/libeo.", "/libecore", "/libevas", "/libelementary",
                     "/libwayland", "/libpepper-efl"});
}

/// Those of GIO and GObject.
inline std::vector<std::string> BusMappings() {
  return MappingsOf({"/libgio-2.0", "/libgobject-2.0"});
}

}  // namespace kavrel_test
